// What the service modules share: the key tables of the service columns,
// the way an importer treats a source file it cannot read, the small line
// helpers of the daemons' files, the guard over the rows a service file is
// made from, and the writer of the files a shell sources.
//
// The modules: ksdb_service (settings, /etc/default/services, the exported
// calls), ksdb_service_samba, ksdb_service_nfs, ksdb_service_ftp,
// ksdb_service_replicate, ksdb_service_daap and ksdb_vault.
#pragma once

#include "core/ksdb_area.h"
#include "util/ksdb_string_utils.h"

#include <initializer_list>
#include <string>
#include <string_view>

namespace ksdb::service {

// ---- key tables ------------------------------------------------------------------

// /etc/default/services.
extern const ksdb_service_setting_map_entry default_services_map[];
// The samba [global] parameters read back from smb.conf.
extern const ksdb_service_setting_map_entry smb_global_map[];
// The FTP daemon's directives that need no handling of their own.
extern const ksdb_service_setting_map_entry proftpd_port_map[];

// ---- reading -----------------------------------------------------------------------

// An importer's source file that could not be read: logs "Cannot load
// <path>" (at `missing_level` when there is no file, at error level when
// the file was refused) and gives `missing_status` for a missing file, 5
// for a refused one (not a regular file, too large, unreadable).
int cannot_load(ksdb_handle *h, const ConfFile &conf, int missing_status,
                uint32_t missing_level = KSDB_LOG_ERROR);

// This machine's name: the first line of /etc/hostname (at most 127
// characters), "localhost" when there is none.  0, or 5 when the file is
// refused.
int read_hostname(ksdb_handle *h, std::string *name);

// The line without its leading white space.
std::string_view skip_blanks(std::string_view line);

// Splits at the first character of `seps`: the text before it, and in
// *rest the text after it (empty when the line has none).
std::string_view split_first(std::string_view line, const char *seps, std::string_view *rest);

// The text between the first two double quotes of `s` when it has one,
// else `s` as it stands (an unclosed quote runs to the end).
std::string_view quoted_or_self(std::string_view s);

// ---- guarding ------------------------------------------------------------------------

// guard_value, and for a value that holds "/" each of its "/"-separated
// parts as a path component too, so that no setting can step out of a
// folder with "..".
int guard_setting(ksdb_handle *h, std::string_view value, const ValueRule &rule,
                  const ValueSource &src);

// One column a file is made from; `expr` (the column when null) selects
// what is written, NULL where nothing is.
struct Guarded {
    const char *column;
    const char *expr = nullptr;
};

// The number of rows of `table` in *n: 0, or 3 when it cannot be read.
int row_count(ksdb_handle *h, sqlite3 *db, const char *table, int *n);

// Guards the columns of every row of `table` (those `where` selects) with
// guard_setting before any file is written.  The row is named "<key> <value
// of key>" ("rowid 1", "id 7").  0; 3 when the rows cannot be read; 4 on
// the first refused value.
int guard_rows(ksdb_handle *h, sqlite3 *db, const char *table, const char *key,
               std::initializer_list<Guarded> columns, const ValueRule &rule,
               const char *where = nullptr);

// ---- writing ---------------------------------------------------------------------------

// Writes a managed file with what fill(out) writes and puts it in place:
// 0, fill's status, or 5 with the messages of write_template_file.
template <class Fill>
int write_file(ksdb_handle *h, sqlite3 *db, const char *path, Fill &&fill) {
    static const char *const kNoTemplate[] = {nullptr};
    return write_template_file(h, db, path, kNoTemplate, std::forward<Fill>(fill));
}

// A value of a file a shell sources: one line.
extern const ValueRule kSourcedValue;

// Writes "KEY=value" for a shell to source: every character the shell
// would read as syntax carries a backslash, so sourcing the line sets KEY
// to exactly `value` and runs nothing; a value without such characters is
// written as it is.  The value must have passed kSourcedValue.
void write_sourced(ManagedFile &out, std::string_view key, std::string_view value);

}  // namespace ksdb::service
