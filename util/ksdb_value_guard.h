// The value guard: no value taken from the database may change the
// structure of the file it is written into.  A value that would start a new
// line, field or section at its place is refused: the exporter logs one
// error line naming the table, the column and the row, writes nothing
// (every ManagedFile it holds is abandoned), and returns 4.
//
//     if (int rc = ksdb::guard_value(h, comment, ksdb::rules::kSambaValue,
//                                    {"share", "comment", name}))
//         return rc;
//
// NUL, carriage return and line feed are refused by every rule; each rule
// adds what delimits a field or a section at its place in its format.  An
// area with a place of its own defines its own ValueRule next to its
// writer and checks it here, so the refusal line and status stay the same
// everywhere.
#pragma once

#include "core/ksdb_internal.h"

#include <string_view>

namespace ksdb {

struct ValueRule {
    const char *place;      // the place, for the refusal line ("a Samba parameter value")
    const char *forbidden;  // bytes refused anywhere, beyond NUL, CR and LF
    unsigned flags;         // kValue* below
};

enum : unsigned {
    kValueNoTrailingBackslash = 1u << 0,  // the line would continue on the next one
    kValueNoLeadingBlank = 1u << 1,       // the format would drop or split on it
    kValueNoTrailingBlank = 1u << 2,
    kValuePathComponent = 1u << 3,        // one path component: not "", "." or "..", no "/"
    kValueNotEmpty = 1u << 4,
    kValueNoLeadingHash = 1u << 5,        // at the start of a line it would make a comment
};

namespace rules {
// Any text within one line.
extern const ValueRule kLine;
// A Samba parameter value (after "name = "): one line that does not end in
// a backslash (Samba joins such a line with the next).
extern const ValueRule kSambaValue;
// A Samba section name ("[name]"): no brackets either.
extern const ValueRule kSambaSection;
// An entry of a Samba list written "\"a\",\"b\"": no quote or comma either.
extern const ValueRule kSambaListEntry;
// A name that becomes one component of a path (a share or application
// folder, a per-user file): not empty, ".", ".." and no "/".
extern const ValueRule kPathComponent;
// A field of passwd, shadow, group or gshadow: no ":".
extern const ValueRule kAccountField;
// A member of a group's member list: no ":" or ",".
extern const ValueRule kAccountListEntry;
// A single word of a directive line (ProFTPD, sshd, snmpd, clamd, cron,
// exports): no blank, tab, "#" or quote either.
extern const ValueRule kWord;
// A value of a "key = value" or "key=value" INI-style line: no "[" at its
// start, no "#" or ";" that a reader would take as a comment.
extern const ValueRule kIniValue;
}  // namespace rules

// Where a value comes from, for the refusal line.
struct ValueSource {
    const char *table;
    const char *column;
    std::string_view row;  // the row's key as the administrator knows it (a name, an id)
};

// Why `value` may not stand at its place under `rule`, or nullptr when it
// may.  A NULL value is always allowed (exporters write it as empty).
const char *value_refusal(std::string_view value, const ValueRule &rule);

// 0 when `value` may stand at its place; otherwise logs at error level
// "Refused <table>.<column> of <row>: <reason> in <place>" and gives
// KSDB_E_INVAL.  A NULL value is allowed.
int guard_value(ksdb_handle *h, const char *value, const ValueRule &rule, const ValueSource &src);
// Refuses a value for a reason of the caller's own (a check no rule
// expresses), with the guard's refusal line and last-error record: always 4.
int refuse_value(ksdb_handle *h, const char *why, const char *place, const ValueSource &src);
int guard_value(ksdb_handle *h, std::string_view value, const ValueRule &rule,
                const ValueSource &src);

}  // namespace ksdb
