// What an area file includes: the module tag and log shorthands, the exit
// log, the C boundary (no exception leaves the library), the transaction
// guard, the thread's last-error record, and the shared mechanisms every
// importer and exporter uses (files, the configuration reader, the value
// guard, the statement helpers).
//
// An area file reads top-down and ends with its steps:
//
//     #define KSDB_MODULE "ksdb_nfs"
//     #include "core/ksdb_area.h"
//     namespace ksdb::nfs { namespace { ...the writer and the reader... } }
//     KSDB_STEP(ksdb_nfs_share_export) { return ksdb::nfs::write_exports(h, db); }
//
// KSDB_STEP defines the step the driver runs (its declaration comes from
// the step list, core/ksdb_steps.h): the body runs inside the C boundary and
// ends with the exit log "name() ==> status (Nms)".
#pragma once

#include "core/ksdb_internal.h"
#include "util/ksdb_conf_reader.h"
#include "util/ksdb_file_utils.h"
#include "util/ksdb_fs.h"
#include "util/ksdb_raii.h"
#include "util/ksdb_sql_helpers.h"
#include "util/ksdb_value_guard.h"

#include <string>

namespace ksdb {

// ---- transactions ----------------------------------------------------------------

// A transaction of the library's own: begun by the constructor
// (ksdb_sql_begin takes db_mutex), rolled back by the destructor unless
// commit() succeeded.  db_mutex is released on every path, whatever begin,
// commit or rollback returned.
//
//     ksdb::Transaction tx(h, db, KSDB_TAG);
//     if (!tx.ok()) return KSDB_E_DB;
//     ... work; an early return rolls back ...
//     return tx.commit() == SQLITE_OK ? 0 : KSDB_E_DB;
class Transaction {
  public:
    Transaction(ksdb_handle *h, sqlite3 *db, const char *module, int line);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    // True when BEGIN succeeded.
    bool ok() const { return state_ == State::kOpen; }
    // COMMIT; after a failed COMMIT the transaction is rolled back.  The
    // SQLite result of the COMMIT.
    int commit();
    // ROLLBACK now (the destructor does it otherwise).
    void rollback();

  private:
    enum class State { kFailed, kOpen, kDone };
    ksdb_handle *h_;
    sqlite3 *db_;
    const char *module_;
    int line_;
    State state_;
};

}  // namespace ksdb

// Defines a step of the step list: `KSDB_STEP(name) { body }`, with `h` and
// `db` in scope.  The body runs inside the C boundary and ends with the
// exit log under the step's name.
#define KSDB_STEP(name)                                                                   \
    static int name##_body(ksdb_handle *h, sqlite3 *db);                                  \
    int name(ksdb_handle *h, sqlite3 *db) {                                               \
        return ::ksdb::logged(h, KSDB_TAG, #name, [&] { return name##_body(h, db); }); \
    }                                                                                     \
    static int name##_body([[maybe_unused]] ksdb_handle *h, [[maybe_unused]] sqlite3 *db)
