// The handle: its constructors, its pools, the per-thread random generator,
// the time helpers and the descriptions of status codes.
#define KSDB_MODULE "ksdb_api"
#include "core/ksdb_internal.h"

#include "platform/platform.h"

#include <apr_general.h>
#include <apr_strings.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>

namespace {

// The random state is per thread; only the thread that made a handle has it
// seeded from the clock, the others draw from the all-zero state.
thread_local struct drand48_data t_rand_state;

void apr_init() { apr_initialize(); }

void init_apr_once() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, apr_init);
}

}  // namespace

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

    ksdb_handle *h = ksdb_initialize(pool, log_stream, log_level, trace_stream, &mutexes[0],
                                     &mutexes[1], &mutexes[2], debug_root, info, 0);
    if (!h) {
        // Nobody else will ever see what was made for the handle.
        std::free(info);
        for (int i = 0; i < 3; ++i) pthread_mutex_destroy(&mutexes[i]);
        apr_pool_destroy(pool);
    }
    return h;
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
