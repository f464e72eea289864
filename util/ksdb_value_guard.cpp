// The value guard's rules and its one refusal path.
#define KSDB_MODULE "ksdb_value_guard"
#include "util/ksdb_value_guard.h"

#include "core/ksdb_area.h"

#include <string>

namespace ksdb {
namespace rules {
const ValueRule kLine{"a line", "", 0};
const ValueRule kSambaValue{"a Samba parameter value", "", kValueNoTrailingBackslash};
const ValueRule kSambaSection{"a Samba section name", "[]",
                              kValueNoTrailingBackslash | kValueNotEmpty | kValueNoLeadingBlank |
                                  kValueNoTrailingBlank};
const ValueRule kSambaListEntry{"an entry of a Samba list", "\",", kValueNoTrailingBackslash};
const ValueRule kPathComponent{"a path component", "/", kValuePathComponent};
const ValueRule kAccountField{"an account file field", ":", 0};
const ValueRule kAccountListEntry{"an account list entry", ":,", 0};
const ValueRule kWord{"a single word", " \t#\"'", kValueNotEmpty | kValueNoTrailingBackslash};
const ValueRule kIniValue{"an INI value", "#;", kValueNoTrailingBackslash | kValueNoLeadingBlank};
}  // namespace rules

const char *value_refusal(std::string_view value, const ValueRule &rule) {
    for (char c : value) {
        if (c == '\0') return "a NUL byte";
        if (c == '\n') return "a line feed";
        if (c == '\r') return "a carriage return";
        if (rule.forbidden && *rule.forbidden && std::strchr(rule.forbidden, c))
            return "a delimiter character";
    }
    const unsigned f = rule.flags;
    if ((f & (kValueNotEmpty | kValuePathComponent)) && value.empty()) return "an empty value";
    if ((f & kValuePathComponent) && (value == "." || value == ".."))
        return "a relative path component";
    if ((f & kValueNoTrailingBackslash) && !value.empty() && value.back() == '\\')
        return "a trailing backslash";
    if ((f & kValueNoLeadingBlank) && !value.empty() && (value.front() == ' ' || value.front() == '\t'))
        return "a leading blank";
    if ((f & kValueNoTrailingBlank) && !value.empty() && (value.back() == ' ' || value.back() == '\t'))
        return "a trailing blank";
    if ((f & kValueNoLeadingHash) && !value.empty() && value.front() == '#')
        return "a leading comment mark";
    return nullptr;
}

int refuse_value(ksdb_handle *h, const char *why, const char *place, const ValueSource &src) {
    // The row key itself may hold the very byte that was refused: it is
    // logged with its control characters made visible.
    std::string row;
    for (char c : src.row) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            row += strprintf("\\x%02x", static_cast<unsigned char>(c));
        else
            row += c;
    }
    KSDB_ERR(h, "Refused %s.%s of '%s': %s in %s\n", src.table, src.column, row.c_str(), why,
             place);
    set_last_error(kLayerLibrary, KSDB_E_INVAL, KSDB_MODULE, __LINE__,
                   strprintf("refused %s.%s of '%s': %s in %s", src.table, src.column,
                             row.c_str(), why, place));
    return KSDB_E_INVAL;
}

int guard_value(ksdb_handle *h, std::string_view value, const ValueRule &rule,
                const ValueSource &src) {
    const char *why = value_refusal(value, rule);
    return why ? refuse_value(h, why, rule.place, src) : 0;
}

int guard_value(ksdb_handle *h, const char *value, const ValueRule &rule, const ValueSource &src) {
    if (!value) return 0;
    return guard_value(h, std::string_view(value), rule, src);
}

}  // namespace ksdb
