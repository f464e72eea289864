/*
 * libksdb - the configuration database of the appliance.
 *
 * Plain C99 interface.  Every call that touches the database takes the
 * handle, the caller's SQLite connection, an optional error-message
 * out-parameter, the caller's call-site tag (module name and line, used in
 * logs only) and then its own arguments.  Calls return int status codes
 * (KSDB_OK on success); no call lets a C++ exception out.
 *
 * Memory: strings and arrays handed back come from the handle's result pool
 * (ksdb_result_pool: call_pool when the caller set one, else pool) and are
 * never freed by the caller; they live as long as that pool.  Exceptions
 * are named in each group below (SQLite result tables, platform lists).
 *
 * Threads: the library starts none.  Any number of the caller's threads may
 * share one handle and one connection: transactions and the *_mutex calls
 * serialise on db_mutex (recursive), log lines on log_mutex, trace records
 * on trace_mutex.  Calls without a lock of their own (the plain SQL calls,
 * the _nolock forms) rely on the caller holding db_mutex when it shares the
 * connection.  Each group says which of its calls take which lock.
 */
#ifndef KSDB_H
#define KSDB_H

#include <pthread.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <apr_pools.h>
#include <sqlite3.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KSDB_API __attribute__((visibility("default")))
#define KSDB_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#define KSDB_SCANF(fmt, args) __attribute__((format(scanf, fmt, args)))
#else
#define KSDB_API
#define KSDB_PRINTF(fmt, args)
#define KSDB_SCANF(fmt, args)
#endif

#define KSDB_VERSION_MAJOR 0
#define KSDB_VERSION_MINOR 1
#define KSDB_VERSION_PATCH 0

/* The schema version that ksdb_create() brings every database to. */
#define KSDB_SCHEMA_VERSION 23

/* ------------------------------------------------------------------------
 * Status codes.  SQLite's own result codes (SQLITE_BUSY, SQLITE_CONSTRAINT,
 * ...) pass through the SQL layer unchanged; these are the library's own.
 * ------------------------------------------------------------------------ */
enum {
    KSDB_OK = 0,
    KSDB_E_VECTOR = -1,  /* a single-value query gave several rows or columns */
    KSDB_E_STEP = 1,     /* a table helper or a chain step failed */
    KSDB_E_FORMAT = 2,   /* an imported file breaks a rule of its format */
    KSDB_E_DB = 3,       /* a query failed or a transaction could not begin/commit */
    KSDB_E_INVAL = 4,    /* invalid argument or unhandled category */
    KSDB_E_FILE = 5,     /* file, buffer or parse failure */
    KSDB_E_SPAWN = 8,    /* a helper command could not be started */
    KSDB_E_COMMAND = 9   /* an external command or directory search failed */
};

/* Exit status of a process whose installed fault reporter caught a fault. */
#define KSDB_FAULT_EXIT_STATUS 14

/* Log levels. */
enum {
    KSDB_LOG_NONE = 0,
    KSDB_LOG_FATAL = 1,
    KSDB_LOG_ERROR = 2,
    KSDB_LOG_WARN = 3,
    KSDB_LOG_INFO = 4,
    KSDB_LOG_DEBUG = 5
};

/* ------------------------------------------------------------------------
 * Import/export categories.  The short names (NONE, ALL, CIFS_SHARE, ...)
 * are the ones callers have always used; a program whose own names clash
 * defines KSDB_NO_SHORT_CATEGORY_NAMES and uses the KSDB_CAT_ forms.
 * ------------------------------------------------------------------------ */
typedef enum ksdb_category {
    KSDB_CAT_NONE = 0,
    KSDB_CAT_ALL = 1,
    KSDB_CAT_VPD = 2,
    KSDB_CAT_ALL_SERVICE = 3,
    KSDB_CAT_DEFAULT_SERVICE = 4,
    KSDB_CAT_CIFS_SERVICE = 5,
    KSDB_CAT_AFP_SERVICE = 6,
    KSDB_CAT_NFS_SERVICE = 7,
    KSDB_CAT_FTP_SERVICE = 8,
    KSDB_CAT_HTTP_SERVICE = 9,
    KSDB_CAT_SNMP_SERVICE = 10,
    KSDB_CAT_SSH_SERVICE = 11,
    KSDB_CAT_REPLICATE_SERVICE = 12,
    KSDB_CAT_VOLUME = 13,
    KSDB_CAT_DISK = 14,
    KSDB_CAT_ACCOUNT = 15,
    KSDB_CAT_ADS_ACCOUNT = 16,
    KSDB_CAT_USB = 17,
    KSDB_CAT_SHARE_STATS = 18,
    KSDB_CAT_ALL_SHARE = 19,
    KSDB_CAT_ZVOL_SHARE = 20,
    KSDB_CAT_CIFS_SHARE = 21,
    KSDB_CAT_AFP_SHARE = 22,
    KSDB_CAT_NFS_SHARE = 23,
    KSDB_CAT_FTP_SHARE = 24,
    KSDB_CAT_HTTP_SHARE = 25,
    KSDB_CAT_DLNA = 26,
    KSDB_CAT_RSYNC = 27,
    KSDB_CAT_SNAPSHOT = 28,
    KSDB_CAT_BACKUP = 29,
    KSDB_CAT_REPLISYNC = 30,
    KSDB_CAT_NETWORK = 31,
    KSDB_CAT_SERVICE = 32,
    KSDB_CAT_AVAHI_SERVICE = 33,
    KSDB_CAT_VAULT_SETTINGS = 34,
    KSDB_CAT_TIVO_SETTINGS = 35,
    KSDB_CAT_UPS_SERVICE = 36,
    KSDB_CAT_ANTIVIRUS_SERVICE = 37,
    KSDB_CAT_DICTIONARY = 38,
    KSDB_CAT_UPS = 39,
    KSDB_CAT_LOCAL_UPS = 40,
    KSDB_CAT_HOTPLUG_USB = 41,
    KSDB_CAT_VOLUME_SCHEDULE = 42,
    KSDB_CAT_HF_STATS = 43,
    KSDB_CAT_AUTHORIZED_SSH_PUBLIC_KEY = 44,
    KSDB_CAT_SHARE_FS_ATTRIBUTE = 45,
    KSDB_CAT_REPLISYNC_KEY = 46
#ifndef KSDB_NO_SHORT_CATEGORY_NAMES
    ,
    NONE = KSDB_CAT_NONE,
    ALL = KSDB_CAT_ALL,
    VPD = KSDB_CAT_VPD,
    ALL_SERVICE = KSDB_CAT_ALL_SERVICE,
    DEFAULT_SERVICE = KSDB_CAT_DEFAULT_SERVICE,
    CIFS_SERVICE = KSDB_CAT_CIFS_SERVICE,
    AFP_SERVICE = KSDB_CAT_AFP_SERVICE,
    NFS_SERVICE = KSDB_CAT_NFS_SERVICE,
    FTP_SERVICE = KSDB_CAT_FTP_SERVICE,
    HTTP_SERVICE = KSDB_CAT_HTTP_SERVICE,
    SNMP_SERVICE = KSDB_CAT_SNMP_SERVICE,
    SSH_SERVICE = KSDB_CAT_SSH_SERVICE,
    REPLICATE_SERVICE = KSDB_CAT_REPLICATE_SERVICE,
    VOLUME = KSDB_CAT_VOLUME,
    DISK = KSDB_CAT_DISK,
    ACCOUNT = KSDB_CAT_ACCOUNT,
    ADS_ACCOUNT = KSDB_CAT_ADS_ACCOUNT,
    USB = KSDB_CAT_USB,
    SHARE_STATS = KSDB_CAT_SHARE_STATS,
    ALL_SHARE = KSDB_CAT_ALL_SHARE,
    ZVOL_SHARE = KSDB_CAT_ZVOL_SHARE,
    CIFS_SHARE = KSDB_CAT_CIFS_SHARE,
    AFP_SHARE = KSDB_CAT_AFP_SHARE,
    NFS_SHARE = KSDB_CAT_NFS_SHARE,
    FTP_SHARE = KSDB_CAT_FTP_SHARE,
    HTTP_SHARE = KSDB_CAT_HTTP_SHARE,
    DLNA = KSDB_CAT_DLNA,
    RSYNC = KSDB_CAT_RSYNC,
    SNAPSHOT = KSDB_CAT_SNAPSHOT,
    BACKUP = KSDB_CAT_BACKUP,
    REPLISYNC = KSDB_CAT_REPLISYNC,
    NETWORK = KSDB_CAT_NETWORK,
    SERVICE = KSDB_CAT_SERVICE,
    AVAHI_SERVICE = KSDB_CAT_AVAHI_SERVICE,
    VAULT_SETTINGS = KSDB_CAT_VAULT_SETTINGS,
    TIVO_SETTINGS = KSDB_CAT_TIVO_SETTINGS,
    UPS_SERVICE = KSDB_CAT_UPS_SERVICE,
    ANTIVIRUS_SERVICE = KSDB_CAT_ANTIVIRUS_SERVICE,
    DICTIONARY = KSDB_CAT_DICTIONARY,
    UPS = KSDB_CAT_UPS,
    LOCAL_UPS = KSDB_CAT_LOCAL_UPS,
    HOTPLUG_USB = KSDB_CAT_HOTPLUG_USB,
    VOLUME_SCHEDULE = KSDB_CAT_VOLUME_SCHEDULE,
    HF_STATS = KSDB_CAT_HF_STATS,
    AUTHORIZED_SSH_PUBLIC_KEY = KSDB_CAT_AUTHORIZED_SSH_PUBLIC_KEY,
    SHARE_FS_ATTRIBUTE = KSDB_CAT_SHARE_FS_ATTRIBUTE,
    REPLISYNC_KEY = KSDB_CAT_REPLISYNC_KEY
#endif
} ksdb_category;

/* Number of categories; a category value at or above it is invalid. */
#define KSDB_CATEGORY_COUNT 47

/* ------------------------------------------------------------------------
 * The system-information record (244 bytes), filled by the platform's
 * get_sys_info().  The hardware-type number comes first.
 * ------------------------------------------------------------------------ */
#define KSDB_SYS_INFO_SIZE 244
typedef struct ksdb_sys_info {
    uint32_t hw_type;     /* hardware-type number; 0 when unknown */
    char vendor[64];      /* NUL-terminated, empty when unknown */
    char model[64];
    char serial[64];
    char reserved[48];
} ksdb_sys_info;

/* ------------------------------------------------------------------------
 * The handle.  The field order and types are part of the interface.
 * ------------------------------------------------------------------------ */
typedef struct ksdb_handle {
    pthread_mutex_t *db_mutex;    /* recursive; serialises transactions */
    FILE *log_stream;             /* NULL: log lines go to the journal */
    pthread_mutex_t *log_mutex;   /* held while one log line is written */
    uint32_t log_level;           /* 0 nothing, 1 fatal .. 5 debug */
    FILE *trace_stream;           /* NULL: SQL trace goes to the journal */
    pthread_mutex_t *trace_mutex; /* held while one trace record is written */
    apr_pool_t *pool;             /* results are allocated here ... */
    apr_pool_t *call_pool;        /* ... or here, when the caller sets it */
    char *debug_root;             /* NULL: the live system */
    ksdb_sys_info *sys_info;      /* 244-byte system-information record */
    uint32_t flags;               /* stored, never read by the library */
} ksdb_handle;

/* Call-site tag helper for callers: ksdb_sql_exec(h, db, NULL, KSDB_SITE("mydaemon"), sql). */
#define KSDB_SITE(module) (module), __LINE__

/* ---- handle and logging ------------------------------------------------ *
 * The caller owns everything it passes to ksdb_initialize (pool, streams,
 * mutexes, system record); the handle only points at them and is freed by
 * the caller with free().  ksdb_initialize_old makes the pool, the three
 * recursive mutexes (from the pool) and the system record (malloc'd): the
 * caller releases them with ksdb_pool_destroy_old, free(handle->sys_info)
 * and free(handle).  The log writers may run on any thread at once (one
 * line at a time under log_mutex / trace_mutex; ads_log appends without a
 * lock).  ksdb_rand keeps its state per thread.
 */

KSDB_API ksdb_handle *ksdb_initialize(apr_pool_t *pool, FILE *log_stream, uint32_t log_level,
                                      FILE *trace_stream, pthread_mutex_t *db_mutex,
                                      pthread_mutex_t *log_mutex, pthread_mutex_t *trace_mutex,
                                      const char *debug_root, ksdb_sys_info *sys_info,
                                      uint32_t flags);
KSDB_API ksdb_handle *ksdb_initialize_old(FILE *log_stream, uint32_t log_level, FILE *trace_stream,
                                          const char *debug_root);
KSDB_API void ksdb_pool_destroy_old(ksdb_handle *handle);

/* The pool results and messages are allocated from: call_pool when set, else pool. */
KSDB_API apr_pool_t *ksdb_result_pool(const ksdb_handle *handle);
/* True when the handle has a debug root other than "/". */
KSDB_API int ksdb_is_debug_root(const ksdb_handle *handle);

KSDB_API void ksdb_log(const ksdb_handle *handle, const char *file, int line, uint32_t level,
                       int append_newline, const char *format, ...) KSDB_PRINTF(6, 7);
KSDB_API void ksdb_vlog(const ksdb_handle *handle, const char *file, int line, uint32_t level,
                        int append_newline, const char *format, va_list ap) KSDB_PRINTF(6, 0);
KSDB_API void ads_log(const char *file, int line, uint32_t level, const char *format, ...)
    KSDB_PRINTF(4, 5);
KSDB_API void ksdb_trace(const ksdb_handle *handle, const char *file, int line, const char *format,
                         ...) KSDB_PRINTF(4, 5);

KSDB_API long ksdb_rand(void);
KSDB_API int64_t ksdb_elapsed_us(const struct timeval *end, const struct timeval *start);
KSDB_API int64_t ksdb_now_ms(void);
KSDB_API int64_t ksdb_now_us(void);

/* A short English description of a status code, for messages. */
KSDB_API const char *ksdb_strstatus(int status);

/* ---- last error ------------------------------------------------------------ *
 * The calling thread's last failure, so that a caller can tell which layer
 * a status came from (SQLite's code 5, SQLITE_BUSY, from the library's 5,
 * KSDB_E_FILE).  Set where a failure begins: by the SQL layer for every
 * failing statement (layer SQLITE, SQLite's extended result code, the
 * caller's call-site tag, SQLite's message); by an operation that fails
 * without such a record made during it (layer LIBRARY, its status, message
 * "name() ==> status").  Never NULL; the record (and its strings) belongs to
 * the thread and stays valid until the thread's next failure or
 * ksdb_clear_error().  Successful calls leave it alone: clear it before a
 * call whose failure you want to examine.
 */
enum { KSDB_LAYER_NONE = 0, KSDB_LAYER_SQLITE = 1, KSDB_LAYER_LIBRARY = 2 };
typedef struct ksdb_error {
    int layer;           /* KSDB_LAYER_* */
    int code;            /* SQLite's result code or the library's status */
    const char *module;  /* call-site module where the failure began */
    int line;            /* and its line */
    const char *message; /* one line, without a newline; "" when none */
} ksdb_error;
KSDB_API const ksdb_error *ksdb_last_error(void);
KSDB_API void ksdb_clear_error(void);

/* ---- SQL access layer -------------------------------------------------- *
 * Result tables of ksdb_sql_get_table* are SQLite's: free them with
 * sqlite3_free_table.  Single values, error messages and table-name lists
 * come from the result pool.  ksdb_sql_begin takes db_mutex and keeps it
 * until the paired commit or rollback (also when BEGIN fails); the *_mutex
 * calls hold it for one statement; every other call takes no lock.  Busy or
 * locked statements are retried (10 ms apart, at most 1001 attempts) while
 * any lock stays held.
 */

KSDB_API int ksdb_sql_exec(ksdb_handle *handle, sqlite3 *db, char **errmsg, const char *file,
                           int line, const char *sql);
KSDB_API int ksdb_sql_exec_mutex(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                 const char *file, int line, const char *sql);
KSDB_API int ksdb_sql_exec_mprintf(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                   const char *file, int line, const char *format, ...);
KSDB_API int ksdb_sql_begin(ksdb_handle *handle, sqlite3 *db, char **errmsg, const char *file,
                            int line);
KSDB_API int ksdb_sql_commit(ksdb_handle *handle, sqlite3 *db, char **errmsg, const char *file,
                             int line);
KSDB_API int ksdb_sql_rollback(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                               const char *file, int line);
KSDB_API int ksdb_sql_get_table(ksdb_handle *handle, sqlite3 *db, char **errmsg, const char *file,
                                int line, char ***result, int *nrow, int *ncol, const char *sql);
KSDB_API int ksdb_sql_get_table_mutex(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                      const char *file, int line, char ***result, int *nrow,
                                      int *ncol, const char *sql);
KSDB_API int ksdb_sql_get_table_mprintf(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                        const char *file, int line, char ***result, int *nrow,
                                        int *ncol, const char *format, ...);
KSDB_API int ksdb_sql_get_scaler_mprintf(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                         const char *file, int line, char **result,
                                         const char *format, ...);
KSDB_API int ksdb_sql_get_int32_mprintf(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                        const char *file, int line, int32_t *result,
                                        int *is_null, const char *format, ...);
KSDB_API int ksdb_sql_get_int64_mprintf(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                        const char *file, int line, int64_t *result,
                                        int *is_null, const char *format, ...);
KSDB_API int ksdb_sql_get_uint32_mprintf(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                         const char *file, int line, uint32_t *result,
                                         int *is_null, const char *format, ...);
KSDB_API int ksdb_sql_get_uint64_mprintf(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                         const char *file, int line, uint64_t *result,
                                         int *is_null, const char *format, ...);

/* Whole-table helpers.  Table lists end with a NULL entry; the prefix is
 * glued in front of each name ("_" + "share" = "_share"). */
KSDB_API int ksdb_sql_delete_tables(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                    const char *prefix, const char *const *tables);
KSDB_API int ksdb_sql_drop_tables(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                  const char *prefix, const char *const *tables);
KSDB_API int ksdb_sql_duplicate_table(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                      const char *source, const char *destination);
KSDB_API int ksdb_sql_duplicate_table_mutex(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                            const char *source, const char *destination);
KSDB_API int ksdb_sql_duplicate_tables(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                       const char *prefix, const char *const *tables);
KSDB_API int ksdb_sql_rename_table(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                   const char *old_name, const char *new_name);
KSDB_API int ksdb_sql_compare_tables(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                     const char *prefix, const char *const *tables,
                                     const char **changed);
KSDB_API int ksdb_sql_compare_tables2(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                      const char *prefix, const char *const *tables, int *count);
KSDB_API int ksdb_sql_compare_table(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                    const char *first, const char *second, int *count);
KSDB_API int ksdb_sql_compare_table_row(ksdb_handle *handle, sqlite3 *db, char **errmsg,
                                        const char *first, const char *second,
                                        const char *condition, int *count);

/* ---- schema (creation and upgrades) ------------------------------------- *
 * Each call is one transaction under db_mutex.  Run ksdb_create once per
 * connection before any import: it is the only call that creates the
 * connection's scratch tables (ksdb_connect makes them for a further
 * connection to a current database).
 */

/* Creates or upgrades the schema to KSDB_SCHEMA_VERSION: 0 or 3. */
KSDB_API int ksdb_create(ksdb_handle *handle, sqlite3 *db);
/* Empties every stored and mirror table: 0 or 3. */
KSDB_API int ksdb_delete(ksdb_handle *handle, sqlite3 *db);

/* ---- import and export -------------------------------------------------- *
 * ksdb_import / ksdb_export / ksdb_export_per_share run in one transaction
 * of their own under db_mutex, so drivers on several threads run one after
 * the other.  The _nolock forms take no lock: the caller holds the
 * transaction (and db_mutex).  Steps allocate their results from the result
 * pool; files they write go through the managed-file layer.
 */

/* Run the importers or exporters of one category inside one transaction. */
KSDB_API int ksdb_import(ksdb_handle *handle, sqlite3 *db, int category);
KSDB_API int ksdb_export(ksdb_handle *handle, sqlite3 *db, int category);
/* The same inside a transaction the caller already holds. */
KSDB_API int ksdb_import_nolock(ksdb_handle *handle, sqlite3 *db, int category);
KSDB_API int ksdb_export_nolock(ksdb_handle *handle, sqlite3 *db, int category);
/* Export of one share's data; only SHARE_FS_ATTRIBUTE is handled. */
KSDB_API int ksdb_export_per_share(ksdb_handle *handle, sqlite3 *db, int category,
                                   const char *share);

/* What a category runs.  Each step of an import or export is provided by
 * this library, or belongs to an area the library does not provide, or to
 * one still being built. */
enum { KSDB_STEP_NOT_PROVIDED = 0, KSDB_STEP_PROVIDED = 1, KSDB_STEP_PENDING = 2 };
typedef struct ksdb_step_info {
    const char *name; /* the step's function, as progress reports name it */
    const char *what; /* what it reads or writes, in a few words */
    int state;        /* KSDB_STEP_* */
} ksdb_step_info;
#define KSDB_STEPS_NOT_EXPORTABLE (-2)
/* The steps a category runs in one direction (0 import, 1 export), in
 * order, the composite categories flattened.  Fills at most `max` entries
 * and returns the number of steps (0: nothing to do); -1 for an invalid
 * category or direction; KSDB_STEPS_NOT_EXPORTABLE when the category cannot
 * be exported. */
KSDB_API int ksdb_category_steps(int category, int direction, ksdb_step_info *steps, int max);

/* ---- connections, progress and faults -------------------------------------- */

/* Prepares a connection to a database that is already at the current
 * schema, as a process that did not create it needs: makes the
 * connection's scratch tables (they are private to each connection) and
 * fills the volume table, without touching any other table.  0; 4 when the
 * schema is not current (run ksdb_create); 3 when a statement fails. */
KSDB_API int ksdb_connect(ksdb_handle *handle, sqlite3 *db);

/* What a commit of a managed file did to its target (the `outcome` of
 * ksdb_observer.file_done). */
#define KSDB_FILE_UNCHANGED 0 /* same content, owner and mode: nothing written */
#define KSDB_FILE_CHANGED 1   /* new content replaced the old file */
#define KSDB_FILE_NEW 2       /* there was no file at the target */
#define KSDB_FILE_FIXED 3     /* same content; only owner or mode were set */

/* Progress of the driver and of the managed-file layer, reported on the
 * calling thread to an observer the caller installs (for progress displays
 * and reports of replaced files).  Any member may be NULL; zero the whole
 * record before filling it, so members added later stay NULL. */
typedef struct ksdb_observer {
    /* A step of an import or export begins (phase 0) or ends (phase 1, with
     * its status). */
    void (*step)(void *arg, const char *name, int phase, int status);
    /* A managed file is about to be put in place (phase 0: `tmp_path` holds
     * the new content; it is the target itself when the content is already
     * there) or has been (phase 1, with the status of the update). */
    void (*file)(void *arg, const char *target, const char *tmp_path, int phase, int status);
    void *arg;
    /* A managed file was committed (status 0) or could not be (status
     * non-zero: the target as it was, unless only the final flush of its
     * folder failed): `outcome` is one of KSDB_FILE_*, what the commit did
     * or would have done. */
    void (*file_done)(void *arg, const char *target, int outcome, int status);
} ksdb_observer;
/* Installs `observer` (copied) for the calling thread; NULL removes it. */
KSDB_API void ksdb_set_observer(const ksdb_observer *observer);

/* Installs, for the whole process, the fault reporter: a segmentation
 * fault is logged through `handle` (program counter, fault address, a short
 * backtrace) and ends the process with KSDB_FAULT_EXIT_STATUS.  The library
 * never installs it itself.  0 on success, -1 when the signal handler could
 * not be set. */
KSDB_API int ksdb_install_fault_reporter(const ksdb_handle *handle);

/* ---- persistent queue ----------------------------------------------------- *
 * Every call is one transaction of its own under db_mutex, so consumers on
 * threads sharing a handle never get one message twice.  Popped and read
 * strings come from the result pool.
 */

KSDB_API int ksdb_queue_create(ksdb_handle *handle, sqlite3 *db, int maxlen);
KSDB_API int ksdb_queue_push(ksdb_handle *handle, sqlite3 *db, const char *src, const char *dst,
                             const char *val, int pri, int ts);
KSDB_API int ksdb_queue_pop(ksdb_handle *handle, sqlite3 *db, const char *src, const char *dst,
                            char **val, int *ts, char **src_out, char **dst_out);
KSDB_API int ksdb_queue_read(ksdb_handle *handle, sqlite3 *db, const char *src, const char *dst,
                             char **val, int *ts, char **src_out, char **dst_out, int *id);
KSDB_API int ksdb_queue_remove(ksdb_handle *handle, sqlite3 *db, int id);
KSDB_API int ksdb_queue_remove_clean(ksdb_handle *handle, sqlite3 *db, int id, int seconds);
KSDB_API int ksdb_queue_remove_all(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_queue_stat(ksdb_handle *handle, sqlite3 *db, const char *src, const char *dst,
                             int *len);

/* ---- managed configuration files ----------------------------------------- *
 * Paths are live paths: the handle's debug root is put in front of them
 * (except for the single-line helpers).  Loaded text comes from the result
 * pool; FILE streams are closed by the caller with fclose.  No lock taken.
 */

/* A managed file: its live path and the owner and mode it must have. */
typedef struct ksdb_file_spec {
    const char *path;
    int32_t uid;
    int32_t gid;
    int32_t mode;
} ksdb_file_spec;

/* Fills `spec` for a live path: from the managed file table or the
 * library's list of the further files it writes (result 1), or, for any
 * other file, owner root and mode 0644 (result 0).  spec->path is `path`
 * itself. */
KSDB_API int ksdb_file_spec_lookup(const char *path, ksdb_file_spec *spec);
/* The managed file table, in its fixed order; *count receives its length. */
KSDB_API const ksdb_file_spec *ksdb_file_spec_table(size_t *count);

/* The readers take regular files only (a FIFO, a device or a folder is
 * refused without blocking) of at most KSDB_FILE_READ_LIMIT bytes to read. */
#define KSDB_FILE_READ_LIMIT (32u << 20)
KSDB_API char *ksdb_file_load(ksdb_handle *handle, const char *path, size_t max_len, size_t *len);
/* Read modes open regular files only; write modes never follow a symbolic
 * link at the path. */
KSDB_API FILE *ksdb_file_open(ksdb_handle *handle, const char *path, const char *mode);
/* A new private file (mode 0600, made exclusively) below ROOT/tmp. */
KSDB_API FILE *ksdb_file_open_tempfile(ksdb_handle *handle, const ksdb_file_spec *spec,
                                       char **tmp_path);
/* Puts the content of `tmp_path` at the managed file through the one
 * writer (compared first; a private file beside the target, flushed, given
 * owner and mode, the old file kept as <target>.bak, one rename) and
 * removes `tmp_path`: 0, or 5 with the target and `tmp_path` as they were. */
KSDB_API int ksdb_file_update(ksdb_handle *handle, const ksdb_file_spec *spec,
                              const char *tmp_path);
KSDB_API int ksdb_file_stat(ksdb_handle *handle, const char *path, struct stat *st);
KSDB_API void ksdb_file_unlink(ksdb_handle *handle, const char *path);
/* Single-line files; these take the path as it stands (no debug root).
 * The writer keeps an existing file's owner and mode (else 0644). */
KSDB_API int ksdb_file_get_one_line(const char *path, char *buf, size_t size);
KSDB_API int ksdb_file_put_one_line(const char *path, const char *text);

/* Makes the share's configuration folder below "/<volume>/._share" and
 * fills `spec` for "<folder>/<name>.conf"; 0 or -1. */
KSDB_API int ksdb_share_conf_spec(ksdb_handle *handle, const char *volume, const char *share,
                                  const char *name, ksdb_file_spec *spec);
typedef int (*ksdb_share_subvolume_fn)(ksdb_handle *handle, sqlite3 *db, const char *volume,
                                       const char *subvolume, void *arg);
/* Calls `callback` for every share subvolume of every volume: 0, the
 * callback's non-zero result (with stop_on_error), or 8. */
KSDB_API int ksdb_foreach_share_subvolume(ksdb_handle *handle, sqlite3 *db,
                                          ksdb_share_subvolume_fn callback, void *arg,
                                          int stop_on_error);

KSDB_API void ksdb_fprintf2(FILE *stream1, FILE *stream2, const char *format, ...)
    KSDB_PRINTF(3, 4);
KSDB_API char *ksdb_conf_value(char *line);
KSDB_API char *ksdb_conf_value_str(const char *line, char *buf, size_t size);
KSDB_API int ksdb_conf_value_int(const char *line);
KSDB_API unsigned long ksdb_conf_value_ulong(const char *line);
KSDB_API int ksdb_is_valid_name(const char *name);
KSDB_API int ksdb_is_dev_mounted(const char *dev);

/* ---- SQL templates and commands ------------------------------------------- *
 * Strings come from the result pool.  Commands run without a shell; every
 * value given to one is quoted.  No lock taken.
 */

/* Writes the NULL-terminated list of pieces, replacing every
 * "{SQL{query}}" by the query's single value: 0, 3 or 5. */
KSDB_API int ksdb_template_write(ksdb_handle *handle, sqlite3 *db, FILE *out,
                                 const char *const *pieces);
KSDB_API int ksdb_exec_scanf(const char *command, const char *format, ...) KSDB_SCANF(2, 3);
KSDB_API int ksdb_exec_vscanf(const char *command, const char *format, va_list ap)
    KSDB_SCANF(2, 0);
KSDB_API int ksdb_safe_system(const char *command);
/* `value` quoted as one shell word, in the result pool. */
KSDB_API char *ksdb_shell_quote(ksdb_handle *handle, const char *value);
KSDB_API const char *ksdb_cat2str(int category);
KSDB_API int ksdb_is_admin_user(ksdb_handle *handle, const char *username);
KSDB_API char *ksdb_admin_users(ksdb_handle *handle, sqlite3 *db);
KSDB_API char *ksdb_get_hostname(ksdb_handle *handle);
KSDB_API uint32_t ksdb_guest_uid(ksdb_handle *handle, sqlite3 *db);
KSDB_API uint32_t ksdb_guest_gid(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_check_vfat(ksdb_handle *handle, const char *device);
KSDB_API int ksdb_check_domain_name(const char *name);
KSDB_API uint64_t ksdb_div_unit(uint64_t value, int si);
KSDB_API uint64_t ksdb_mul_unit(uint64_t value, int si);

/* ---- string utilities ------------------------------------------------------ *
 * Functions on a char * work in place on the caller's buffer; those that
 * take a pool or handle allocate their result there.  No state, no lock:
 * safe on any thread.
 */

KSDB_API int skip_space(char **cursor);
KSDB_API int ksdb_skip_to_char(char **cursor, int c);
KSDB_API int skip_to_chars(char **cursor, const char *set);
/* Destructive splitters: the outputs are char ** and the list ends with NULL. */
KSDB_API int splitchr(char **cursor, const char *delimset, ...);
KSDB_API int split(char **cursor, const char *delimiter, ...);
KSDB_API int splitstr(char *str, const char *delimiter, ...);
KSDB_API char **split_to_array(ksdb_handle *handle, char **cursor, const char *delimiter);
KSDB_API int ksdb_csv_to_array(ksdb_handle *handle, const char *line, char ***array, int *count);
KSDB_API char *ksdb_trim(char *str, const char *leading, const char *trailing, int all);
KSDB_API char *ksdb_trim_blanks(char *str);
KSDB_API char *ksdb_trim_line_end(char *str);
/* Removes one pair of surrounding double quotes, in place. */
KSDB_API char *ksdb_strip_quotes(char *str);
KSDB_API char *escape_for_shell(ksdb_handle *handle, const char *str);
KSDB_API char *unescape_for_shell(char *str);
/* Removes shell quoting (matching single and double quotes, backslashes), in place. */
KSDB_API char *ksdb_unquote_shell_word(char *str);
KSDB_API int ksdb_hex_digit(int c);
KSDB_API char *ksdb_unescape_url(apr_pool_t *pool, const char *path);
KSDB_API char *ksdb_escape_url(apr_pool_t *pool, const char *path);
KSDB_API char *ksdb_unescape_xml(apr_pool_t *pool, const char *str);
KSDB_API char *ksdb_escape_xml(apr_pool_t *pool, const char *str);
KSDB_API int ksdb_tail_match(const char *a, const char *b);
/* "none" for a NULL or empty value, else the value itself ... */
KSDB_API const char *ksdb_or_none(const char *value);
/* ... or a pool copy of it. */
KSDB_API char *ksdb_pstrdup_or_none(apr_pool_t *pool, const char *value);
KSDB_API char *ksdb_normalize_smb_path(ksdb_handle *handle, const char *path);
KSDB_API char *ksdb_i_to_dow(apr_pool_t *pool, int bits);
KSDB_API int ksdb_dow_to_i(const char *text);
typedef int (*ini_handler)(void *user, const char *section, const char *name, const char *value);
KSDB_API int ini_parse_file(const char *path, ini_handler handler, void *user);

/* ---- volumes and share file-system attributes ---------------------------- *
 * Paths are live paths below the debug root.  Attribute texts come from the
 * result pool.  These calls take no lock; ksdb_update_vol_maint_log runs its
 * statements on the connection as it stands (inside the caller's
 * transaction, if any).
 */

/* Records the start (phase 0) or the end (phase 1) of a maintenance
 * operation on a device in the persistent maintenance log: 0, 3, or 4 when
 * the operation or the device is missing.  Other phases do nothing. */
KSDB_API int ksdb_update_vol_maint_log(ksdb_handle *handle, sqlite3 *db, const char *operation,
                                       const char *device, int phase, const char *result,
                                       const char *details);
/* Bytes used by the subvolume at a live path ("/volume/share"). */
KSDB_API int ksdb_get_subvolume_used_in_bytes(ksdb_handle *handle, sqlite3 *db, const char *path,
                                              uint64_t *out);
/* Sets a file-system attribute of a share folder: "compression" and
 * "bitrotprotection" ("on"/"off"), "refquota" (a size such as "100M",
 * "none" or "0"); other names are ignored.  0, or 8 when a command fails. */
KSDB_API int ksdb_btrfs_set_attr(ksdb_handle *handle, const char *path, const char *name,
                                 const char *value);
/* Reads a file-system attribute of a share folder as text (result pool):
 * "compression", "bitrotprotection" ("on"/"off"), "used", "refquota",
 * "usedbysnapshots" (bytes, "none" for no quota).  0 on success. */
KSDB_API int ksdb_btrfs_get_attr(ksdb_handle *handle, const char *path, const char *name,
                                 char **value);
/* Removes the reference quota of a share folder. */
KSDB_API int ksdb_disable_share_quota(ksdb_handle *handle, const char *path);

/* ---- service settings ------------------------------------------------------ *
 * Plain statements on the connection, no lock of their own.
 */

/* Names exported for other programs. */
KSDB_API extern const char *const TABLE_SMB_USERNAME_MAP;            /* "smb_username_map" */
KSDB_API extern const char *const TABLE_SMB_USERNAME_MAP_TYPE_HASH;  /* "HASH" */
KSDB_API extern const char *const TABLE_SMB_USERNAME_MAP_TYPE_UNAME; /* "UNAME" */

/* Recomputes the host-name-lookup switch of "cifs" or "ftp" from the host
 * access lists; other protocols are left alone.  0 or 3. */
KSDB_API int ksdb_service_update_setting_by_share(ksdb_handle *handle, sqlite3 *db,
                                                  const char *protocol);
/* 1 for exactly "UNAME" or "HASH", else 0. */
KSDB_API int ksdb_valid_smb_username_map_type(const char *type);
/* The `enabled` value of the SSH service (0 when unset), or -1 on error. */
KSDB_API int ksdb_is_service_ssh_enabled(ksdb_handle *handle, sqlite3 *db);

/* ---- snapshots ------------------------------------------------------------- *
 * The snapshot look-ups.  Each may run on several threads at once with one
 * handle; the scan writes `$snapshot` in the caller's transaction when one
 * is open, else in one of its own (taking db_mutex). */

/* Scans the volumes for the snapshots that exist and records them in
 * `$snapshot`; `volume` and `share` filter the scan (NULL: all).  With a
 * share, that share's rows are removed first.  0; 3 when a statement
 * failed; 4 without a handle or connection; 8 when the listing cannot be
 * started. */
KSDB_API int ksdb_snapshots_import_zfs(ksdb_handle *handle, sqlite3 *db, const char *volume,
                                       const char *share);
/* The bytes used by the snapshot `snapshot_name` of the share folder at the
 * live path `share_path`: 0 with *out set; 4 when an argument is missing;
 * 11 when the snapshot cannot be found; the attribute reader's status when
 * its usage cannot be read. */
KSDB_API int ksdb_getSnapshotUsedInBytes(ksdb_handle *handle, sqlite3 *db, const char *share_path,
                                         const char *snapshot_name, uint64_t *out);
/* The name of the newest snapshot of a share (by its `zfs_name`), copied
 * into the handle's result pool (never freed by the caller): 0 with *out
 * set; 1 when there is none; 3 when the query failed; 4 when an argument is
 * missing. */
KSDB_API int ksdb_getLatestSnapshotName(ksdb_handle *handle, sqlite3 *db, const char *zfs_name,
                                        char **out);

/* ---- local users and groups ------------------------------------------------ */

/* The account files (/etc/passwd, /etc/shadow, /etc/group, /etc/gshadow) and
 * the appliance's account settings, both ways.  Only local rows (`rid` NULL)
 * are read or written.  None of these calls begins a transaction of its own:
 * each runs in the caller's when it holds one.  Strings handed back come from
 * the handle's result pool.  Calls on one connection must not overlap; with a
 * connection each, several threads may share the handle, but two exports of
 * the same files at once are not guarded against each other.
 *
 * ksdb_account_export writes passwd/shadow, group/gshadow, the password-
 * recovery file and the home-folder settings file, in that order, after
 * checking every value of all four; a value that would add a line or a
 * field (a ":" or a newline in a name, a "," in a member's name) is refused
 * with 4 and no file is written.  0, 3, 4 or 5. */
KSDB_API int ksdb_account_import(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_account_export(ksdb_handle *handle, sqlite3 *db);
/* With keep 0 the local users (groups) are deleted first.  0, 3 or 5. */
KSDB_API int _ksdb_account_local_user_import(ksdb_handle *handle, sqlite3 *db, int keep);
KSDB_API int _ksdb_account_local_group_import(ksdb_handle *handle, sqlite3 *db, int keep);
KSDB_API int _ksdb_account_local_user_export(ksdb_handle *handle, sqlite3 *db);
KSDB_API int _ksdb_account_local_group_export(ksdb_handle *handle, sqlite3 *db);
KSDB_API int _ksdb_account_passwordrecovery_export(ksdb_handle *handle, sqlite3 *db);
/* Writes /etc/quillfold/account.conf; nothing when the defaults name no
 * known volume or group. */
KSDB_API int _ksdb_account_default_export(ksdb_handle *handle, sqlite3 *db);
/* The home folder of a user name of the running system (no debug root) into
 * the caller's buffer: 0, 4 without a buffer, 2 out of memory, or the exit
 * status of "getent passwd NAME". */
KSDB_API int ksdb_account_get_homedir(const char *name, char *buffer, size_t size);
/* 1 when the user id exists, 0 when not, -1 when the query failed. */
KSDB_API int ksdb_find_user_id(ksdb_handle *handle, sqlite3 *db, int uid);
/* *name (result pool) of a user id: 0, 4 for an unknown id, 3. */
KSDB_API int ksdb_get_user_name(ksdb_handle *handle, sqlite3 *db, int uid, char **name);
/* 1 when the user's home folder exists, 0 when not, -1 when the query failed. */
KSDB_API int ksdb_user_home_exist(ksdb_handle *handle, sqlite3 *db, int uid);
/* Runs /sbin/mkhomedir_helper for an ordinary user (id 98 or at least 100):
 * 0, 3, 4 (reserved or unknown id, name unknown to the system), 8 or 9. */
KSDB_API int ksdb_create_user_home(ksdb_handle *handle, sqlite3 *db, int uid);
KSDB_API int ksdb_import_users_with_existing_homes(ksdb_handle *handle, sqlite3 *db);

/* ---- SSH public keys and authorized keys ---------------------------------- */

/* One key of a key file.  Strings come from the handle's result pool. */
typedef struct ksdb_ssh_public_key {
    const char *command;     /* the command of a leading command="..." option, or NULL */
    const char *type;        /* "ssh-rsa", "ssh-ed25519", "ecdsa-sha2-nistp256" ... */
    const char *key;         /* the base64 key */
    const char *comment;     /* the rest of the line, or NULL */
    const char *fingerprint; /* MD5 of the decoded key, "xx:xx:...:xx" */
} ksdb_ssh_public_key;

/* Reads the keys of a key file (OpenSSH lines, or one key in RFC4716, PEM or
 * PKCS8 form, converted with ssh-keygen) into *keys (result pool) and
 * *count.  Lines that hold no "ssh-" or "ecdsa-" key are skipped.  0, 5 (the
 * file cannot be read or converted), 8 or 9 (no fingerprint). */
KSDB_API int ksdb_parse_ssh_public_key_file(ksdb_handle *handle, const char *path,
                                            ksdb_ssh_public_key **keys, int *count);
/* The find calls: 1 when a row exists, 0 when none, -1 when the query failed
 * or the table name is not a plain name.  `table` is "ssh_public_key" or
 * "replisync_key"; the others look in "ssh_public_key". */
KSDB_API int ksdb_find_ssh_public_key_key(ksdb_handle *handle, sqlite3 *db, const char *table,
                                          const char *key);
KSDB_API int ksdb_find_ssh_public_key_user_id_key(ksdb_handle *handle, sqlite3 *db, int user_id,
                                                  const char *key);
KSDB_API int ksdb_find_ssh_public_key_comment(ksdb_handle *handle, sqlite3 *db,
                                              const char *comment);
KSDB_API int ksdb_find_ssh_public_key_id(ksdb_handle *handle, sqlite3 *db, const char *table,
                                         int id);
KSDB_API int ksdb_find_ssh_public_key_title(ksdb_handle *handle, sqlite3 *db, const char *title);
/* 0 or 3. */
KSDB_API int ksdb_delete_ssh_public_key_by_uid(ksdb_handle *handle, sqlite3 *db, int uid);
KSDB_API int ksdb_get_number_of_ssh_public_key(ksdb_handle *handle, sqlite3 *db, int *count);
/* The id of user 0's key that carries the same key as key `id` of user 98:
 * 1 and *root_id, 0 when there is none, -1 when the query failed. */
KSDB_API int ksdb_find_tied_root_ssh_public_key(ksdb_handle *handle, sqlite3 *db, int id,
                                                int *root_id);
/* 1 for exactly "rsync" or "all", else 0. */
KSDB_API int ksdb_is_valid_ssh_public_key_serve_for(const char *value);
/* The key as an OpenSSH line (result pool): [command="..." ]type key[ comment]. */
KSDB_API char *ksdb_ssh_public_key_to_string(ksdb_handle *handle, const ksdb_ssh_public_key *key);
/* The categories AUTHORIZED_SSH_PUBLIC_KEY and REPLISYNC_KEY. */
KSDB_API int ksdb_authorized_ssh_public_key_import(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_authorized_ssh_public_key_export(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_replisync_key_import(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_replisync_key_export(ksdb_handle *handle, sqlite3 *db);

/* ---- SSH, SNMP and anti-virus service files -------------------------------- *
 * The exporters of SSH_SERVICE, SNMP_SERVICE and ANTIVIRUS_SERVICE (also run
 * within ALL_SERVICE), for callers that write one service file on its own.
 * None begins a transaction: each runs in the caller's when it holds one.
 * Nothing is allocated from the handle's pools.  Calls on one connection
 * must not overlap; two exports of the same file at once are not guarded
 * against each other.  Each ends with its exit log.
 *
 * ksdb_ssh_service_export writes /etc/ssh/sshd_config (the password switch
 * from `service_ssh`).  0, 3 or 5.
 * ksdb_snmp_service_export writes /etc/default/services, then
 * /etc/snmp/snmpd.conf from `service_snmp` and the platform's
 * getSysObjectID.  A community, allowed source or trap destination that is
 * not one word, or a contact or location holding a quote, "#" or a line
 * break, is refused with 4 before either file is written.  0, 3, 4 or 5
 * (or the settings file's status).
 * ksdb_antivirus_service_export writes /etc/clamav/clamd.conf from the
 * mounted volumes (`_volume`) and the LUN shares' paths; a value that would
 * change a line's meaning is refused with 4, nothing written.  0, 3, 4 or 5. */
KSDB_API int ksdb_ssh_service_export(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_snmp_service_export(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_antivirus_service_export(ksdb_handle *handle, sqlite3 *db);

/* ---- product data, network interfaces and announcements ----------------- *
 * The product data (vital_product_data) comes from the handle's system
 * record, the interfaces (network_if: non-loopback IPv4 interfaces with
 * their lower-case MAC addresses) from the platform's interface scan.  Both
 * exports only write their exit log.  The announcement calls are run by no
 * category: ksdb_avahi_service_export writes the avahi service file of
 * every service switched on in service_avahi below /etc/avahi/services and
 * deletes the file of every one switched off (0, 3, 4 for a refused
 * announced value, 5); ksdb_avahi_service_import sets service_avahi from
 * the files that exist (0 or 3).  None begins a transaction of its own;
 * nothing is allocated for the caller.  Calls on one connection must not
 * overlap. */
KSDB_API int ksdb_vpd_import(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_vpd_export(ksdb_handle *handle, sqlite3 *db);
/* 0, 1 when the interfaces cannot be listed, 3. */
KSDB_API int ksdb_network_import(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_network_export(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_avahi_service_import(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_avahi_service_export(ksdb_handle *handle, sqlite3 *db);

/* ---- cloud vault settings and the message dictionary --------------------- *
 * ksdb_vault_export writes the vault client's settings file from
 * service_vault (0, 3, 4 for a value holding a line break, 5);
 * ksdb_vault_import takes the account back only when the file names it
 * whole (0 also for a missing file, or 3).  ksdb_dictionary_import loads the
 * UI's message dictionary into the temporary tables _lang_supported and
 * _dictionary of this connection: 0 (also for a missing or broken file,
 * which leaves the tables as they were), or 3 when a statement failed (the
 * rest is still loaded).  None begins a transaction of its own; nothing is
 * allocated for the caller. */
KSDB_API int ksdb_vault_import(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_vault_export(ksdb_handle *handle, sqlite3 *db);
KSDB_API int ksdb_dictionary_import(ksdb_handle *handle, sqlite3 *db);

/* ---- AFP and rsync shares --------------------------------------------------- */

/* The AFP share files: the netatalk share sections (the global files of the
 * volume and USB shares and each share's own afp.conf), then the one-line
 * files of the shares on the volume "USB".  The same work the AFP_SHARE
 * category runs (as _ksdb_afp_share_usb_share_export); no transaction of its
 * own.  Every value is checked before any file is written: 4 for a value
 * that would change a file's structure (nothing written), 3, 5, or 0. */
KSDB_API int ksdb_afp_share_export(ksdb_handle *handle, sqlite3 *db);
/* 1 when the Time Machine folder ".timemachine" of the home volume (the
 * `account_default` row's volume) exists and can be read, else 0.  Nothing is
 * allocated; may run on several threads with a connection each. */
KSDB_API int ksdb_is_timemachine_path_valid(ksdb_handle *handle, sqlite3 *db);

#ifdef __cplusplus
}
#endif

#endif /* KSDB_H */
