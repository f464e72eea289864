// Statement helpers shared by importers and exporters: a statement that
// logs its own failure, the update-else-insert pair of the one-row tables,
// the key-to-column settings tables, and the template-file writer.
#pragma once

#include "core/ksdb_internal.h"
#include "util/ksdb_file_utils.h"

#include <string>

namespace ksdb {

// Runs one formatted statement (sqlite3 printf rules); on failure logs
// `failed` at error level and gives 3.
int exec_or_fail(ksdb_handle *h, sqlite3 *db, const char *failed, const char *format, ...);

// The one-row tables get their row from the first write: the UPDATE runs
// first, and when it changed no row the INSERT makes the row.  0, or 3
// after logging the failing statement's message.
int update_else_insert(ksdb_handle *h, sqlite3 *db, const SqlStr &update, const SqlStr &insert,
                       const std::string &update_failed, const std::string &insert_failed);

// One key of a settings file and the column it stands for.  A key table is
// an array ended by an entry whose key is NULL.
struct ksdb_service_setting_map_entry {
    const char *key;          // the name as written in the source file
    const char *table_name;
    const char *column_name;
    int is_int;               // 1: the text is converted with strtol base 10
    int misc_only;            // 1: only recorded in service_misc, never written on import
};

// Applies one key=value setting through a key table: every entry of the
// key writes its column (unless it is only recorded), and with
// record_in_misc the pair is kept in service_misc together with the column
// it maps to (both NULL for a free key).  0 or 3.
int _ksdb_apply_setting(ksdb_handle *h, sqlite3 *db, const ksdb_service_setting_map_entry *map,
                        int record_in_misc, const char *key, const char *value);

// Writes a managed file from a template (ksdb_template_write's pieces) and
// whatever more(out) adds, then puts it in place.  Any failure leaves the
// old file as it was: 0, the template's or more()'s status, or 5 with
// "Cannot open temporary file <path>" / "Cannot move file to <path>".
template <class More>
int write_template_file(ksdb_handle *h, sqlite3 *db, const char *path,
                        const char *const *pieces, More &&more) {
    ManagedFile out(h, path);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s\n", path);
        return KSDB_E_FILE;
    }
    if (int rc = ksdb_template_write(h, db, out.fp(), pieces)) return rc;
    if (int rc = more(out)) return rc;
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", path);
        return KSDB_E_FILE;
    }
    return 0;
}
inline int write_template_file(ksdb_handle *h, sqlite3 *db, const char *path,
                               const char *const *pieces) {
    return write_template_file(h, db, path, pieces, [](ManagedFile &) { return 0; });
}

}  // namespace ksdb
