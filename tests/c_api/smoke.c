/* Compiled as C99 against the installed header and library. */
#include <ksdb.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    sqlite3 *db = NULL;
    ksdb_handle *h = ksdb_initialize_old(NULL, 0, NULL, NULL);
    int32_t value = 0;
    int is_null = 1;
    char *text = NULL;
    ksdb_category cat = CIFS_SHARE;

    if (!h) return 10;
    if (cat != KSDB_CAT_CIFS_SHARE || KSDB_CATEGORY_COUNT != 47) return 11;
    if (sqlite3_open(":memory:", &db) != SQLITE_OK) return 12;
    if (ksdb_sql_exec(h, db, NULL, KSDB_SITE("smoke"), "CREATE TABLE t (v INT)") != KSDB_OK)
        return 13;
    if (ksdb_sql_exec_mprintf(h, db, NULL, KSDB_SITE("smoke"), "INSERT INTO t VALUES(%d)", 41) != 0)
        return 14;
    if (ksdb_sql_get_int32_mprintf(h, db, NULL, KSDB_SITE("smoke"), &value, &is_null,
                                   "SELECT v+1 FROM t") != 0 || value != 42 || is_null != 0)
        return 15;
    if (ksdb_sql_get_scaler_mprintf(h, db, NULL, KSDB_SITE("smoke"), &text, "SELECT %Q",
                                    "it's") != 0 || strcmp(text, "it's") != 0)
        return 16;
    if (sizeof(ksdb_sys_info) != KSDB_SYS_INFO_SIZE) return 17;
    sqlite3_close(db);
    free(h->sys_info);
    ksdb_pool_destroy_old(h);
    free(h);
    puts("c api ok");
    return 0;
}
