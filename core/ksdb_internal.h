// Shared mechanisms of the library: logging shorthands, the exit log, RAII
// over SQLite results and strings, assertions that survive NDEBUG, and the
// debug-root path rule.  Every module includes this header.
//
// A module names itself before including it:
//     #define KSDB_MODULE "ksdb_cifs"
//     #include "core/ksdb_internal.h"
// KSDB_TAG then expands to the module name and the current line, the
// call-site tag that every SQL call and log line carries.
#pragma once

#define KSDB_NO_SHORT_CATEGORY_NAMES 1
#include "ksdb.h"

#include <sys/time.h>

#include <cstdarg>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#ifndef KSDB_MODULE
#error "define KSDB_MODULE (the module's call-site tag) before including ksdb_internal.h"
#endif

#define KSDB_TAG KSDB_MODULE, __LINE__

// Log a line when the handle's level lets it through; the arguments are not
// evaluated otherwise.
#define KSDB_LOG(h, level, ...)                                                   \
    do {                                                                          \
        const ksdb_handle *ksdb_log_h_ = (h);                                     \
        if (ksdb_log_h_ && ksdb_log_h_->log_level >= (uint32_t)(level))           \
            ksdb_log(ksdb_log_h_, KSDB_MODULE, __LINE__, (level), 0, __VA_ARGS__); \
    } while (0)
#define KSDB_ERR(h, ...) KSDB_LOG(h, KSDB_LOG_ERROR, __VA_ARGS__)
#define KSDB_WARN(h, ...) KSDB_LOG(h, KSDB_LOG_WARN, __VA_ARGS__)
#define KSDB_INFO(h, ...) KSDB_LOG(h, KSDB_LOG_INFO, __VA_ARGS__)
#define KSDB_DEBUG(h, ...) KSDB_LOG(h, KSDB_LOG_DEBUG, __VA_ARGS__)

// Programming errors stop the process even in release builds, with the
// C library's usual assertion message naming the expression.
#define KSDB_ASSERT(expr) \
    ((expr) ? (void)0 : ::ksdb::assert_fail(#expr, __FILE__, __LINE__, __func__))

namespace ksdb {

[[noreturn]] void assert_fail(const char *expr, const char *file, int line, const char *func);

inline apr_pool_t *result_pool(const ksdb_handle *h) {
    return h->call_pool ? h->call_pool : h->pool;
}

inline bool debug_root_set(const ksdb_handle *h) { return ksdb_is_debug_root(h) != 0; }

// The effective path of a live-system path: debug root + path, or the path
// itself on the live system.
std::string effective_path(const ksdb_handle *h, std::string_view path);

// ads_log() below the handle's debug root, so that a test run never writes
// the live domain-account log.
void ads_log_for(const ksdb_handle *h, const char *file, int line, uint32_t level,
                 const char *format, ...) KSDB_PRINTF(5, 6);

// Where journal records go when a handle has no stream.  The default sends
// them with sd_journal_send; tests install a recorder.
using JournalSink = void (*)(const char *message, int priority, const char *code_file,
                             int code_line, const char *category);
JournalSink set_journal_sink(JournalSink sink);  // returns the previous sink

// Where ads_log writes (normally /var/log/kestravad/ads.log).
extern const char *const kAdsLogPath;

// The observer the calling thread installed with ksdb_set_observer, or NULL.
const ksdb_observer *current_observer();

// Holds a pthread mutex for a scope; a null mutex is no lock at all (a
// handle may be made without them).
class MutexGuard {
  public:
    explicit MutexGuard(pthread_mutex_t *m) : m_(m) {
        if (m_) pthread_mutex_lock(m_);
    }
    ~MutexGuard() {
        if (m_) pthread_mutex_unlock(m_);
    }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;

  private:
    pthread_mutex_t *m_;
};

// ---- time ----------------------------------------------------------------

class Stopwatch {
  public:
    Stopwatch() { gettimeofday(&start_, nullptr); }
    long long elapsed_ms() const {
        struct timeval now;
        gettimeofday(&now, nullptr);
        return static_cast<long long>(ksdb_elapsed_us(&now, &start_) / 1000);
    }

  private:
    struct timeval start_;
};

// ---- exit log --------------------------------------------------------------

// Writes the exit log of a public operation: "name() ==> rc (Nms)" at debug
// level on success; at error level, and to the domain-account log, on
// failure.
void exit_log(const ksdb_handle *h, const char *module, int line, const char *func, int rc,
              long long elapsed_ms) noexcept;

// ---- last error ----------------------------------------------------------------

enum ErrorLayer { kLayerNone = KSDB_LAYER_NONE, kLayerSqlite = KSDB_LAYER_SQLITE,
                  kLayerLibrary = KSDB_LAYER_LIBRARY };

// Records the calling thread's last failure for ksdb_last_error().
void set_last_error(ErrorLayer layer, int code, const char *module, int line,
                    std::string message) noexcept;
// A number that changes with every record the calling thread makes, so that
// an operation can tell whether a record was made while it ran.
unsigned long last_error_serial() noexcept;
// Records the failure of operation `func` (layer LIBRARY, its status) unless
// a record was made since `serial` was read: a record made where the
// failure began (a failing statement, a refused value) says more.
void note_failure(unsigned long serial, const char *module, int line, const char *func,
                  int rc) noexcept;

// ---- transactions ------------------------------------------------------------------

// A transaction of the library's own: begun by the constructor
// (ksdb_sql_begin takes db_mutex), rolled back by the destructor unless it
// was committed or deliberately left open.  db_mutex is released on every
// path, an exception included:
//   - a failed BEGIN gives the lock back without a ROLLBACK (which could undo
//     a transaction the caller holds on the connection), unless the
//     operation's rule is to roll back after a failed BEGIN;
//   - a failed COMMIT is rolled back while one more level of the lock is
//     held, so no other thread slips a statement in between.
//
//     ksdb::Transaction tx(h, db, KSDB_TAG);
//     if (!tx.ok()) return KSDB_E_DB;
//     ... work; an early return rolls back ...
//     return tx.commit() == SQLITE_OK ? 0 : KSDB_E_DB;
class Transaction {
  public:
    enum class FailedBegin { kRelease, kRollback };
    Transaction(ksdb_handle *h, sqlite3 *db, const char *module, int line,
                FailedBegin failed_begin = FailedBegin::kRelease);
    ~Transaction() { rollback(); }
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    // True when BEGIN succeeded and the transaction is still open.
    bool ok() const { return state_ == State::kOpen; }
    // COMMIT; a failed COMMIT is rolled back.  The SQLite result of the COMMIT.
    int commit();
    // COMMIT without a ROLLBACK after a failure (db_mutex is released all
    // the same), for the operations whose rule says so.
    int commit_only();
    // ROLLBACK now (the destructor does it otherwise).
    void rollback();
    // Ends the guard without COMMIT or ROLLBACK: the transaction and
    // db_mutex stay with the calling thread, which must end them.
    void leave_open() { state_ = State::kDone; }

  private:
    enum class State { kFailed, kOpen, kDone };
    ksdb_handle *h_;
    sqlite3 *db_;
    const char *module_;
    int line_;
    State state_;
};

// ---- the C boundary ------------------------------------------------------------

// A void entry point that must not throw and has nowhere to report (the log
// writers themselves): whatever body() throws is dropped.
template <class Body>
void quietly(Body &&body) noexcept {
    try {
        body();
    } catch (...) {
    }
}

// Runs body() and turns any exception it lets out into a status: memory
// exhaustion and every other exception give KSDB_E_FILE, with one error
// line naming the operation.  Every exported entry point runs its work
// through this (logged() below does it for the framed operations).
template <class Body>
int boundary(const ksdb_handle *h, const char *module, int line, const char *func,
             Body &&body) noexcept {
    // The exception's text is copied while the exception still exists.
    char what[256] = "unknown exception";
    try {
        return body();
    } catch (const std::bad_alloc &) {
        std::snprintf(what, sizeof what, "%s", "out of memory");
    } catch (const std::exception &e) {
        std::snprintf(what, sizeof what, "%s", e.what());
    } catch (...) {
    }
    if (h && h->log_level >= KSDB_LOG_ERROR)
        ksdb_log(h, module, line, KSDB_LOG_ERROR, 0, "%s(): %s\n", func, what);
    quietly([&] {
        set_last_error(kLayerLibrary, KSDB_E_FILE, module, line, std::string(func) + ": " + what);
    });
    return KSDB_E_FILE;
}

// A value-returning entry point (a string, a pointer) that must not throw:
// `fallback` when body() throws.
template <class T, class Body>
T boundary_value(const ksdb_handle *h, const char *module, int line, const char *func,
                 T fallback, Body &&body) noexcept {
    T out = fallback;
    boundary(h, module, line, func, [&] {
        out = body();
        return 0;
    });
    return out;
}

// Runs body() inside the C boundary and ends with the exit log under
// `func`; a failure without a more specific record becomes the thread's
// last error.  Every public area operation is framed this way:
//     return ksdb::logged(h, KSDB_TAG, "ksdb_cifs_share_export", [&] { ... });
template <class Body>
int logged(const ksdb_handle *h, const char *module, int line, const char *func,
           Body &&body) noexcept {
    Stopwatch sw;
    const unsigned long serial = last_error_serial();
    int rc = boundary(h, module, line, func, std::forward<Body>(body));
    if (rc != 0) note_failure(serial, module, line, func, rc);
    exit_log(h, module, line, func, rc, sw.elapsed_ms());
    return rc;
}

// ---- SQLite RAII -----------------------------------------------------------

struct SqliteFree {
    void operator()(void *p) const { sqlite3_free(p); }
};

// A string made by sqlite3_mprintf/vmprintf that frees itself.
class SqlStr {
  public:
    SqlStr() = default;
    explicit SqlStr(char *s) : s_(s) {}
    const char *get() const { return s_.get(); }
    char *release() { return s_.release(); }
    explicit operator bool() const { return s_ != nullptr; }

  private:
    std::unique_ptr<char, SqliteFree> s_;
};

SqlStr sql_printf(const char *format, ...);
SqlStr sql_vprintf(const char *format, va_list ap);

// A result table of sqlite3_get_table that frees itself.  Row 0 of the raw
// table holds the column names; at(r, c) addresses data rows from 0.
class SqlTable {
  public:
    SqlTable() = default;
    SqlTable(const SqlTable &) = delete;
    SqlTable &operator=(const SqlTable &) = delete;
    ~SqlTable() { reset(); }

    void reset() {
        if (table_) sqlite3_free_table(table_);
        table_ = nullptr;
        nrow_ = ncol_ = 0;
    }
    // Out-parameters for ksdb_sql_get_table*; any previous result is freed.
    char ***table_out() {
        reset();
        return &table_;
    }
    int *nrow_out() { return &nrow_; }
    int *ncol_out() { return &ncol_; }

    int rows() const { return nrow_; }
    int cols() const { return ncol_; }
    const char *at(int row, int col) const { return table_[(row + 1) * ncol_ + col]; }
    // NULL values read as "".
    const char *str(int row, int col) const {
        const char *v = at(row, col);
        return v ? v : "";
    }

    // Runs a formatted query (sqlite3 printf rules) into this table.
    int query(ksdb_handle *h, sqlite3 *db, const char *module, int line, const char *format, ...);

  private:
    char **table_ = nullptr;
    int nrow_ = 0;
    int ncol_ = 0;
};

// The text single-value query of ksdb_sql_get_scaler_mprintf with the value
// in scratch memory: the same statement, vector check and messages, but
// nothing allocated from the caller's result pool, so internal callers
// (templates, exporters) do not grow it.  *value becomes the text, or
// nullopt for no row, a NULL value or a failed query; with two or more
// rows it is left as it was.
int sql_scalar(ksdb_handle *h, sqlite3 *db, char **errmsg, const char *module, int line,
               std::optional<std::string> *value, const char *format, ...);
int sql_vscalar(ksdb_handle *h, sqlite3 *db, char **errmsg, const char *module, int line,
                std::optional<std::string> *value, const char *format, va_list ap);

// The pair importers write a row with: "INSERT OR IGNORE ..." makes sure the
// row exists (with its key and the columns that must not be NULL), then
// "UPDATE ..." sets the imported values, so columns the importer does not
// know keep what they held.  Both statements are built by the caller with
// sql_printf; the UPDATE runs only when the INSERT succeeded.  SQLITE_OK or
// the failing statement's result code.
//     if (ksdb::sql_insert_then_update(h, db, KSDB_TAG,
//             ksdb::sql_printf("INSERT OR IGNORE INTO t (k) VALUES(%d)", k),
//             ksdb::sql_printf("UPDATE t SET v=%Q WHERE k=%d", v, k)) != SQLITE_OK) ...
int sql_insert_then_update(ksdb_handle *h, sqlite3 *db, const char *module, int line,
                           const SqlStr &insert, const SqlStr &update);

// ---- pool helpers ----------------------------------------------------------

// printf into the handle's result pool.
char *pool_printf(const ksdb_handle *h, const char *format, ...) KSDB_PRINTF(2, 3);
char *pool_strdup(const ksdb_handle *h, const char *s);

// std::string printf, for scratch text that must not grow the caller's pool.
std::string strprintf(const char *format, ...) KSDB_PRINTF(1, 2);
std::string vstrprintf(const char *format, va_list ap) KSDB_PRINTF(1, 0);

}  // namespace ksdb
