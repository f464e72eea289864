/*
 * A first program against libksdb: make a handle, open a database, run a
 * transaction through the SQL layer and read a value back.
 *
 *   cc -std=c99 quickstart.c $(pkg-config --cflags --libs ksdb) -o quickstart
 *   ./quickstart /tmp/quickstart.db
 */
#include <ksdb.h>

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
    const char *path = argc > 1 ? argv[1] : ":memory:";
    sqlite3 *db = NULL;
    ksdb_handle *h;
    int64_t total = 0;
    int is_null = 0;
    int rc;

    /* Log warnings and errors to standard error, no SQL trace. */
    h = ksdb_initialize_old(stderr, KSDB_LOG_WARN, NULL, NULL);
    if (!h) {
        fprintf(stderr, "cannot create the handle\n");
        return 1;
    }
    if (sqlite3_open(path, &db) != SQLITE_OK) {
        fprintf(stderr, "cannot open %s\n", path);
        return 1;
    }

    rc = ksdb_sql_exec(h, db, NULL, KSDB_SITE("quickstart"),
                       "CREATE TABLE IF NOT EXISTS counter (n INTEGER)");
    /* A transaction holds db_mutex from begin to commit or rollback. */
    if (rc == KSDB_OK) rc = ksdb_sql_begin(h, db, NULL, KSDB_SITE("quickstart"));
    if (rc == KSDB_OK)
        rc = ksdb_sql_exec_mprintf(h, db, NULL, KSDB_SITE("quickstart"),
                                   "INSERT INTO counter VALUES(%d)", 42);
    if (rc == KSDB_OK) {
        rc = ksdb_sql_commit(h, db, NULL, KSDB_SITE("quickstart"));
    } else {
        ksdb_sql_rollback(h, db, NULL, KSDB_SITE("quickstart"));
    }
    if (rc == KSDB_OK)
        rc = ksdb_sql_get_int64_mprintf(h, db, NULL, KSDB_SITE("quickstart"), &total, &is_null,
                                        "SELECT SUM(n) FROM counter");
    if (rc != KSDB_OK) {
        fprintf(stderr, "quickstart failed: %d (%s)\n", rc, ksdb_strstatus(rc));
        return 1;
    }
    printf("sum of counter rows: %lld\n", (long long)total);

    sqlite3_close(db);
    free(h->sys_info);
    ksdb_pool_destroy_old(h); /* results live in the pool until here */
    free(h);
    return 0;
}
