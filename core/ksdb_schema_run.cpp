// Runs the schema lists: ksdb_create (creation list, then the upgrade steps
// from the stored version), ksdb_delete (empties every stored and mirror
// table) and ksdb_connect (a further connection to a current database).
#define KSDB_MODULE "ksdb_api"
#include "core/ksdb_internal.h"

#include "core/ksdb_areas.h"
#include "core/ksdb_schema.h"

namespace ksdb::schema {

bool is_scratch_statement(const char *sql) {
    auto starts = [&](const char *prefix) {
        return std::strncmp(sql, prefix, std::strlen(prefix)) == 0;
    };
    if (starts("CREATE TEMPORARY TABLE") || starts("DROP TABLE IF EXISTS `_")) return true;
    if (starts("CREATE INDEX")) {
        const char *on = std::strstr(sql, " ON `");
        return on && on[5] == '_';
    }
    return false;
}

}  // namespace ksdb::schema

namespace {

constexpr int64_t kPageSize = 4096;

int run_list(ksdb_handle *h, sqlite3 *db, const char *const *list) {
    for (const char *const *s = list; *s; ++s) {
        int rc = ksdb_sql_exec(h, db, nullptr, KSDB_TAG, *s);
        if (rc != SQLITE_OK) return rc;
    }
    return SQLITE_OK;
}

int read_pragma(ksdb_handle *h, sqlite3 *db, const char *pragma, int64_t *value) {
    return ksdb_sql_get_int64_mprintf(h, db, nullptr, KSDB_TAG, value, nullptr, "%s", pragma);
}

int write_version(ksdb_handle *h, sqlite3 *db, long version) {
    return ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "PRAGMA user_version=%ld", version);
}

// The page size is fixed outside the transaction: SQLite applies a new page
// size only when VACUUM rebuilds the file.
void fix_page_size(ksdb_handle *h, sqlite3 *db, int64_t page_size) {
    if (page_size == kPageSize) return;
    KSDB_ERR(h, "DB (main) page size: %ld ==> 4096\n", static_cast<long>(page_size));
    if (sqlite3_exec(db, "PRAGMA page_size=4096", nullptr, nullptr, nullptr) != SQLITE_OK) {
        KSDB_ERR(h, "Setting page_size failed!\n");
        return;
    }
    if (sqlite3_exec(db, "VACUUM", nullptr, nullptr, nullptr) != SQLITE_OK)
        KSDB_ERR(h, "VACUUM failed!\n");
}

int create_schema(ksdb_handle *h, sqlite3 *db) {
    namespace schema = ksdb::schema;
    ksdb::Transaction tx(h, db, KSDB_TAG);
    if (!tx.ok()) return KSDB_E_DB;

    // The failures of the two reads and of the version writes return
    // without a rollback: the transaction and db_mutex stay with the calling
    // thread.  A failing statement of a list rolls everything back.
    int64_t version = 0;
    if (read_pragma(h, db, "PRAGMA user_version", &version) != SQLITE_OK) {
        tx.leave_open();
        return KSDB_E_DB;
    }
    // Logged at error level on purpose, so that the version shows in every
    // log that records errors at all.
    if (version != 0)
        KSDB_ERR(h, "DB (main) schema version: %ld ==> %ld\n", static_cast<long>(version),
                 schema::kVersion);
    else
        KSDB_ERR(h, "DB (main) schema version: new ==> %ld\n", schema::kVersion);

    int64_t page_size = 0;
    if (read_pragma(h, db, "PRAGMA page_size", &page_size) != SQLITE_OK) {
        tx.leave_open();
        return KSDB_E_DB;
    }

    if (run_list(h, db, schema::kCreation) != SQLITE_OK) return KSDB_E_DB;

    if (version != 0) {
        // The creation list has run first, so an old step that creates a
        // stored table without IF NOT EXISTS fails and rolls everything back.
        for (long n = version < 1 ? 1 : static_cast<long>(version) + 1;
             n <= schema::kVersion && schema::kUpgrades[n]; ++n) {
            KSDB_INFO(h, "DB upgrade to version %ld\n", n);
            if (run_list(h, db, schema::kUpgrades[n]) != SQLITE_OK) return KSDB_E_DB;
            if (write_version(h, db, n) != SQLITE_OK) {
                tx.leave_open();
                return KSDB_E_DB;
            }
        }
    } else if (write_version(h, db, schema::kVersion) != SQLITE_OK) {
        tx.leave_open();
        return KSDB_E_DB;
    }

    if (run_list(h, db, schema::kIndexes) != SQLITE_OK) return KSDB_E_DB;

    // A failed COMMIT is not rolled back here.
    int rc = tx.commit_only() == SQLITE_OK ? KSDB_OK : KSDB_E_DB;
    fix_page_size(h, db, page_size);
    return rc;
}

int delete_rows(ksdb_handle *h, sqlite3 *db) {
    ksdb::Transaction tx(h, db, KSDB_TAG, ksdb::Transaction::FailedBegin::kRollback);
    if (!tx.ok()) return KSDB_E_DB;
    ksdb::SqlTable names;
    if (names.query(h, db, KSDB_TAG, "SELECT tbl_name FROM sqlite_master WHERE type='table'") !=
        SQLITE_OK)
        return KSDB_E_DB;
    // Scratch tables live in the temporary schema and are not listed here.
    for (int r = 0; r < names.rows(); ++r) {
        const char *name = names.str(r, 0);
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "DELETE FROM `%s`", name) !=
            SQLITE_OK) {
            KSDB_ERR(h, "Error in SQL query (DELETE FROM %s)\n", name);
            return KSDB_E_DB;
        }
    }
    return tx.commit() == SQLITE_OK ? KSDB_OK : KSDB_E_DB;
}

int connect_db(ksdb_handle *h, sqlite3 *db) {
    int64_t version = 0;
    if (read_pragma(h, db, "PRAGMA user_version", &version) != SQLITE_OK) return KSDB_E_DB;
    if (version != ksdb::schema::kVersion) return KSDB_E_INVAL;
    // The scratch tables' statements of the creation list, and nothing that
    // would touch a stored or mirror table.
    for (const char *const *sql = ksdb::schema::kCreation; *sql; ++sql) {
        if (!ksdb::schema::is_scratch_statement(*sql)) continue;
        if (ksdb_sql_exec(h, db, nullptr, KSDB_TAG, *sql) != SQLITE_OK) return KSDB_E_DB;
    }
    return ksdb_volume_import(h, db) == 0 ? 0 : KSDB_E_DB;
}

}  // namespace

extern "C" {

int ksdb_create(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_create", [&] { return create_schema(h, db); });
}

int ksdb_delete(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_delete", [&] { return delete_rows(h, db); });
}

int ksdb_connect(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_connect", [&] { return connect_db(h, db); });
}

}  // extern "C"
