// The handle: its constructors, its pools, the per-thread random generator
// and the time helpers.
#define KSDB_MODULE "ksdb_api"
#include "core/ksdb_internal.h"
#include "platform/platform.h"

#include <apr_general.h>
#include <apr_strings.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <mutex>

namespace {

// The random state is per thread; only the thread that made a handle has it
// seeded from the clock, the others draw from the all-zero state.
thread_local struct drand48_data t_rand_state;

void init_apr_once() {
    static std::once_flag once;
    std::call_once(once, [] { apr_initialize(); });
}

}  // namespace

// ---- schema ----------------------------------------------------------------
// ksdb_create and ksdb_delete.

#include "core/ksdb_schema.h"

namespace {

constexpr int64_t kPageSize = 4096;

int run_list(ksdb_handle *h, sqlite3 *db, const char *const *list) {
    for (const char *const *s = list; *s; ++s) {
        int rc = ksdb_sql_exec(h, db, nullptr, KSDB_TAG, *s);
        if (rc != SQLITE_OK) return rc;
    }
    return SQLITE_OK;
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
    if (ksdb_sql_begin(h, db, nullptr, KSDB_TAG) != SQLITE_OK) return KSDB_E_DB;

    // The failures of the two reads and of the version writes below return
    // without a rollback: the transaction and db_mutex stay with the calling
    // thread.
    int64_t version = 0;
    if (ksdb_sql_get_int64_mprintf(h, db, nullptr, KSDB_TAG, &version, nullptr,
                                   "PRAGMA user_version") != SQLITE_OK)
        return KSDB_E_DB;
    // Logged at error level on purpose, so that the version shows in every
    // log that records errors at all.
    if (version != 0)
        KSDB_ERR(h, "DB (main) schema version: %ld ==> %ld\n", static_cast<long>(version),
                 schema::kVersion);
    else
        KSDB_ERR(h, "DB (main) schema version: new ==> %ld\n", schema::kVersion);

    int64_t page_size = 0;
    if (ksdb_sql_get_int64_mprintf(h, db, nullptr, KSDB_TAG, &page_size, nullptr,
                                   "PRAGMA page_size") != SQLITE_OK)
        return KSDB_E_DB;

    if (run_list(h, db, schema::kCreation) != SQLITE_OK) {
        ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
        return KSDB_E_DB;
    }

    if (version != 0) {
        // The creation list has run first, so an old step that creates a
        // stored table without IF NOT EXISTS fails and rolls everything back.
        long n = version < 1 ? 1 : static_cast<long>(version) + 1;
        for (; n <= schema::kVersion && schema::kUpgrades[n]; ++n) {
            KSDB_INFO(h, "DB upgrade to version %ld\n", n);
            if (run_list(h, db, schema::kUpgrades[n]) != SQLITE_OK) {
                ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
                return KSDB_E_DB;
            }
            if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "PRAGMA user_version=%ld", n) !=
                SQLITE_OK)
                return KSDB_E_DB;
        }
    } else if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "PRAGMA user_version=%ld",
                                     schema::kVersion) != SQLITE_OK) {
        return KSDB_E_DB;
    }

    int rc = KSDB_OK;
    if (ksdb_sql_commit(h, db, nullptr, KSDB_TAG) != SQLITE_OK) rc = KSDB_E_DB;
    fix_page_size(h, db, page_size);
    return rc;
}

int delete_rows(ksdb_handle *h, sqlite3 *db) {
    ksdb::SqlTable names;
    if (ksdb_sql_begin(h, db, nullptr, KSDB_TAG) != SQLITE_OK ||
        ksdb_sql_get_table(h, db, nullptr, KSDB_TAG, names.table_out(), names.nrow_out(),
                           names.ncol_out(),
                           "SELECT tbl_name FROM sqlite_master WHERE type='table'") != SQLITE_OK) {
        names.reset();
        ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
        return KSDB_E_DB;
    }
    // Scratch tables live in the temporary schema and are not listed here.
    for (int r = 0; r < names.rows(); ++r) {
        const char *name = names.str(r, 0);
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "DELETE FROM `%s`", name) !=
            SQLITE_OK) {
            KSDB_ERR(h, "Error in SQL query (DELETE FROM %s)\n", name);
            ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
            return KSDB_E_DB;
        }
    }
    if (ksdb_sql_commit(h, db, nullptr, KSDB_TAG) != SQLITE_OK) {
        ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
        return KSDB_E_DB;
    }
    return KSDB_OK;
}

}  // namespace

extern "C" {

int ksdb_create(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_create", [&] { return create_schema(h, db); });
}

int ksdb_delete(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_delete", [&] { return delete_rows(h, db); });
}

}  // extern "C"

// ---- end of schema ---------------------------------------------------------

extern "C" {

ksdb_handle *ksdb_initialize(apr_pool_t *pool, FILE *log_stream, uint32_t log_level,
                             FILE *trace_stream, pthread_mutex_t *db_mutex,
                             pthread_mutex_t *log_mutex, pthread_mutex_t *trace_mutex,
                             const char *debug_root, ksdb_sys_info *sys_info, uint32_t flags) {
    void *mem = nullptr;
    size_t size = (sizeof(ksdb_handle) + 31) & ~static_cast<size_t>(31);
    if (posix_memalign(&mem, 32, size) != 0) return nullptr;
    std::memset(mem, 0, size);
    auto *h = static_cast<ksdb_handle *>(mem);

    h->log_stream = log_stream;
    h->log_level = log_level;
    h->trace_stream = trace_stream;

    if (debug_root) {
        // The mutexes are not stored yet, so these two lines are written
        // without the log mutex.
        struct stat st;
        if (stat(debug_root, &st) != 0) {
            if (log_level > 1)
                ksdb_log(h, KSDB_TAG, KSDB_LOG_ERROR, 0, "Invalid debug_root=%s\n", debug_root);
            std::free(h);
            return nullptr;
        }
        if (!S_ISDIR(st.st_mode)) {
            if (log_level > 1)
                ksdb_log(h, KSDB_TAG, KSDB_LOG_ERROR, 0, "Not a directory debug_root=%s\n",
                         debug_root);
            std::free(h);
            return nullptr;
        }
        if (std::strcmp(debug_root, "/") != 0) {
            if (!pool) {
                std::free(h);
                return nullptr;
            }
            h->debug_root = apr_pstrdup(pool, debug_root);
        }
    }
    h->pool = pool;
    h->call_pool = nullptr;

    srand48_r(time(nullptr), &t_rand_state);

    h->db_mutex = db_mutex;
    h->log_mutex = log_mutex;
    h->trace_mutex = trace_mutex;
    h->sys_info = sys_info;
    h->flags = flags;
    return h;
}

ksdb_handle *ksdb_initialize_old(FILE *log_stream, uint32_t log_level, FILE *trace_stream,
                                 const char *debug_root) {
    init_apr_once();
    apr_pool_t *pool = nullptr;
    if (apr_pool_create_ex(&pool, nullptr, nullptr, nullptr) != APR_SUCCESS) return nullptr;
    if (apr_allocator_t *allocator = apr_pool_allocator_get(pool))
        apr_allocator_max_free_set(allocator, 32);

    auto *mutexes = static_cast<pthread_mutex_t *>(apr_pcalloc(pool, 3 * sizeof(pthread_mutex_t)));
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    for (int i = 0; i < 3; ++i) pthread_mutex_init(&mutexes[i], &attr);
    pthread_mutexattr_destroy(&attr);

    auto *info = static_cast<ksdb_sys_info *>(std::malloc(KSDB_SYS_INFO_SIZE));
    if (info) get_sys_info(info);

    return ksdb_initialize(pool, log_stream, log_level, trace_stream, &mutexes[0], &mutexes[1],
                           &mutexes[2], debug_root, info, 0);
}

void ksdb_pool_destroy_old(ksdb_handle *h) {
    if (h && h->pool) {
        apr_pool_destroy(h->pool);
        h->pool = nullptr;
    }
}

apr_pool_t *ksdb_result_pool(const ksdb_handle *h) { return ksdb::result_pool(h); }

int ksdb_is_debug_root(const ksdb_handle *h) {
    return h && h->debug_root && std::strcmp(h->debug_root, "/") != 0;
}

long ksdb_rand(void) {
    long value = 0;
    mrand48_r(&t_rand_state, &value);
    return static_cast<long>(static_cast<int32_t>(value));
}

int64_t ksdb_elapsed_us(const struct timeval *end, const struct timeval *start) {
    return (static_cast<int64_t>(end->tv_sec) * 1000000 + end->tv_usec) -
           (static_cast<int64_t>(start->tv_sec) * 1000000 + start->tv_usec);
}

int64_t ksdb_now_ms(void) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<int64_t>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

int64_t ksdb_now_us(void) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<int64_t>(tv.tv_sec) * 1000000 + tv.tv_usec;
}

const char *ksdb_strstatus(int status) {
    switch (status) {
    case KSDB_OK: return "success";
    case KSDB_E_VECTOR: return "a single-value query gave several rows or columns";
    case KSDB_E_STEP: return "a table helper or a step of a chain failed";
    case KSDB_E_FORMAT: return "an imported file breaks a rule of its format";
    case KSDB_E_DB: return "a database step or transaction failed";
    case KSDB_E_INVAL: return "invalid argument or unhandled category";
    case KSDB_E_FILE: return "a file, buffer or parse failure";
    case KSDB_E_SPAWN: return "a helper command could not be started";
    case KSDB_E_COMMAND: return "an external command or directory search failed";
    case KSDB_FAULT_EXIT_STATUS: return "the process caught a fault";
    default: break;
    }
    // SQLite's own codes pass through the SQL layer.
    return sqlite3_errstr(status);
}

}  // extern "C"

// ---- driver ----------------------------------------------------------------
// ksdb_import, ksdb_export, their _nolock forms and ksdb_export_per_share.
