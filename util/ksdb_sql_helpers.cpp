// Statement helpers shared by the areas.
#define KSDB_MODULE "ksdb_sql_helpers"
#include "util/ksdb_sql_helpers.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace ksdb {

int exec_or_fail(ksdb_handle *h, sqlite3 *db, const char *failed, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    SqlStr sql = sql_vprintf(format, ap);
    va_end(ap);
    if (!sql || ksdb_sql_exec(h, db, nullptr, KSDB_TAG, sql.get()) != SQLITE_OK) {
        KSDB_ERR(h, "%s", failed);
        return KSDB_E_DB;
    }
    return 0;
}

int update_else_insert(ksdb_handle *h, sqlite3 *db, const SqlStr &update, const SqlStr &insert,
                       const std::string &update_failed, const std::string &insert_failed) {
    if (!update || ksdb_sql_exec(h, db, nullptr, KSDB_TAG, update.get()) != SQLITE_OK) {
        KSDB_ERR(h, "%s", update_failed.c_str());
        return KSDB_E_DB;
    }
    if (sqlite3_changes(db) != 0) return 0;
    if (!insert || ksdb_sql_exec(h, db, nullptr, KSDB_TAG, insert.get()) != SQLITE_OK) {
        KSDB_ERR(h, "%s", insert_failed.c_str());
        return KSDB_E_DB;
    }
    return 0;
}

int _ksdb_apply_setting(ksdb_handle *h, sqlite3 *db, const ksdb_service_setting_map_entry *map,
                        int record_in_misc, const char *key, const char *value) {
    const char *table = nullptr;
    const char *column = nullptr;
    for (const ksdb_service_setting_map_entry *e = map; e->key; ++e) {
        if (std::strcmp(e->key, key) != 0) continue;
        table = e->table_name;
        column = e->column_name;
        if (e->misc_only) break;
        SqlStr update, insert;
        if (e->is_int) {
            const int v = static_cast<int>(std::strtol(value, nullptr, 10));
            update = sql_printf("UPDATE %s SET %s=%d", table, column, v);
            insert = sql_printf("INSERT INTO %s (%s) VALUES(%d)", table, column, v);
        } else {
            update = sql_printf("UPDATE %s SET %s=%Q", table, column, value);
            insert = sql_printf("INSERT INTO %s (%s) VALUES(%Q)", table, column, value);
        }
        if (int rc = update_else_insert(h, db, update, insert,
                                        strprintf("Failed to UPDATE %s\n", table),
                                        strprintf("Failed to INSERT INTO %s\n", table)))
            return rc;
    }
    if (record_in_misc && *key && value) {
        SqlStr sql = sql_printf(
            "DELETE FROM service_misc WHERE key=%Q;INSERT OR IGNORE INTO service_misc "
            "(key,val,table_name,column_name) VALUES(%Q,%Q,%Q,%Q)",
            key, key, value, table, column);
        if (!sql || ksdb_sql_exec(h, db, nullptr, KSDB_TAG, sql.get()) != SQLITE_OK) {
            KSDB_ERR(h, "Failed to replace service_misc key=%s val=%s\n", key, value);
            return KSDB_E_DB;
        }
    }
    return 0;
}

}  // namespace ksdb
