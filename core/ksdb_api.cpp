// The handle: its constructors, its pools, the per-thread random generator
// and the time helpers.
#define KSDB_MODULE "ksdb_api"
#include "core/ksdb_internal.h"

#include "core/ksdb_areas.h"
#include "core/ksdb_driver.h"
#include "core/ksdb_schema.h"
#include "core/ksdb_signal.h"
#include "platform/platform.h"

#include <apr_general.h>
#include <apr_strings.h>
#include <sys/stat.h>

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <vector>

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
        ksdb::rollback_after_failed_commit(h, db, KSDB_TAG);
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

namespace ksdb::schema {

bool is_scratch_statement(const char *sql) {
    auto starts = [&](const char *prefix) { return std::strncmp(sql, prefix, std::strlen(prefix)) == 0; };
    if (starts("CREATE TEMPORARY TABLE") || starts("DROP TABLE IF EXISTS `_")) return true;
    if (starts("CREATE INDEX")) {
        const char *on = std::strstr(sql, " ON `");
        return on && on[5] == '_';
    }
    return false;
}

}  // namespace ksdb::schema

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

// ---- driver ----------------------------------------------------------------
// ksdb_import, ksdb_export, their _nolock forms and ksdb_export_per_share.

namespace ksdb::driver {

namespace {

thread_local bool t_in_transaction = false;

// The service importers of AFP, NFS, HTTP, SNMP and SSH take their settings
// from /etc/default/services alone, so their own steps do nothing.
int nothing(ksdb_handle *, sqlite3 *) { return 0; }

int ads_account_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb_ads_account_import(h, db, t_in_transaction ? 1 : 0);
}

struct StepTableInit {
    static void set(Step s, const char *name, StepFn fn, const char *what) {
        g_steps[s] = StepEntry{name, fn, what};
    }
    StepTableInit() {
        set(kVpdImport, "ksdb_vpd_import", ksdb_vpd_import,
            "vendor, model and serial into the product data");
        set(kVolumeImport, "ksdb_volume_import", ksdb_volume_import,
            "the data volumes into the volume table");
        set(kDiskImport, "ksdb_disk_import", ksdb_disk_import,
            "disks and enclosures");
        set(kDefaultServiceImport, "ksdb_default_service_import", ksdb_default_service_import,
            "/etc/default/services into the service tables");
        set(kServiceImport, "ksdb_service_import", ksdb_service_import,
            "/etc/default/services into the service tables");
        set(kCifsServiceImport, "ksdb_cifs_service_import", ksdb_cifs_service_import,
            "smb.conf and usermap.conf into the Samba settings");
        set(kAfpServiceImport, "ksdb_afp_service_import", nothing,
            "nothing (AFP settings come from /etc/default/services)");
        set(kNfsServiceImport, "ksdb_nfs_service_import", nothing,
            "nothing (NFS settings come from /etc/default/services)");
        set(kFtpServiceImport, "ksdb_ftp_service_import", ksdb_ftp_service_import,
            "the host name, proftpd.conf and ftps.conf into the FTP settings");
        set(kHttpServiceImport, "ksdb_http_service_import", nothing,
            "nothing (HTTP settings come from /etc/default/services)");
        set(kEmptyServiceImport, "ksdb_empty_service_import", nothing,
            "nothing");
        set(kDaapServiceImport, "ksdb_daap_service_import", ksdb_daap_service_import,
            "the DAAP server's file into its settings");
        set(kSnmpServiceImport, "ksdb_snmp_service_import", nothing,
            "nothing (SNMP settings come from /etc/default/services)");
        set(kSshServiceImport, "ksdb_ssh_service_import", nothing,
            "nothing (SSH settings come from /etc/default/services)");
        set(kReplicateServiceImport, "ksdb_replicate_service_import",
            ksdb_replicate_service_import,
            "the replication registration file into its owner");
        set(kAccountImport, "ksdb_account_import", ksdb_account_import,
            "passwd, shadow, group and the account settings files into the accounts");
        set(kAdsAccountImport, "ksdb_ads_account_import", ads_account_import,
            "domain accounts");
        set(kUsbImport, "ksdb_usb_import", ksdb_usb_import,
            "USB storage devices");
        set(kUsbHotplugImport, "ksdb_usb_hotplug_import", ksdb_usb_hotplug_import,
            "USB storage devices after a hot-plug");
        set(kShareStatsImport, "ksdb_share_stats_import", ksdb_share_stats_import,
            "share space statistics");
        set(kZvolShareImport, "ksdb_zvol_share_import", ksdb_zvol_share_import,
            "iSCSI LUN shares found on the volumes");
        set(kCifsShareImport, "ksdb_cifs_share_import", ksdb_cifs_share_import,
            "per-share samba.conf files and dfs.conf into shares and CIFS options");
        set(kCifsUsbShareImport, "ksdb_cifs_usb_share_import", ksdb_cifs_usb_share_import,
            "the USB shares' samba.conf files");
        set(kAfpShareImport, "ksdb_afp_share_import", ksdb_afp_share_import,
            "per-share afp.conf files into AFP options");
        set(kAfpUsbShareImport, "ksdb_afp_usb_share_import", ksdb_afp_usb_share_import,
            "the USB shares' afp.conf files");
        set(kNfsShareImport, "ksdb_nfs_share_import", ksdb_nfs_share_import,
            "per-share nfs.conf files into NFS options");
        set(kNfsUsbShareImport, "ksdb_nfs_usb_share_import", ksdb_nfs_usb_share_import,
            "the USB shares' nfs.conf files");
        set(kFtpShareImport, "ksdb_ftp_share_import", ksdb_ftp_share_import,
            "FTP share settings");
        set(kFtpUsbShareImport, "ksdb_ftp_usb_share_import", ksdb_ftp_usb_share_import,
            "FTP settings of USB shares");
        set(kHttpShareImport, "ksdb_http_share_import", ksdb_http_share_import,
            "HTTP share settings");
        set(kHttpUsbShareImport, "ksdb_http_usb_share_import", ksdb_http_usb_share_import,
            "HTTP settings of USB shares");
        set(kDaapShareImport, "ksdb_daap_share_import", ksdb_daap_share_import,
            "DAAP share settings");
        set(kDlnaImport, "ksdb_dlna_import", ksdb_dlna_import,
            "DLNA settings");
        set(kRsyncImport, "ksdb_rsync_import", ksdb_rsync_import,
            "the rsync module file into rsync options");
        set(kRsyncUsbImport, "ksdb_rsync_usb_import", ksdb_rsync_usb_import,
            "rsync modules of USB shares");
        set(kSnapshotImport, "ksdb_snapshot_import", ksdb_snapshot_import,
            "snapshot schedules and retention settings");
        set(kBackupImport, "ksdb_backup_import", ksdb_backup_import,
            "the backup job file into the backup jobs");
        set(kReplisyncImport, "ksdb_replisync_import", ksdb_replisync_import,
            "the replication job file into the replication jobs");
        set(kNetworkImport, "ksdb_network_import", ksdb_network_import,
            "the network interfaces");
        set(kVaultImport, "ksdb_vault_import", ksdb_vault_import,
            "the cloud vault client's file into its settings");
        set(kTivoImport, "ksdb_tivo_import", ksdb_tivo_import,
            "TiVo settings");
        set(kDictionaryImport, "ksdb_dictionary_import", ksdb_dictionary_import,
            "the UI message dictionary");
        set(kUpsImport, "ksdb_ups_import", ksdb_ups_import,
            "UPS configuration");
        set(kLocalUpsImport, "ksdb_local_ups_import", ksdb_local_ups_import,
            "the local UPS");
        set(kVolumeScheduleImport, "ksdb_volume_schedule_import", ksdb_volume_schedule_import,
            "each volume's maintenance schedule file");
        set(kHfStatsImport, "ksdb_hf_stats_import", ksdb_hf_stats_import,
            "home-folder statistics");
        set(kAuthorizedKeyImport, "ksdb_authorized_ssh_public_key_import",
            ksdb_authorized_ssh_public_key_import,
            "the SSH key configuration into the key store");
        set(kShareFsAttributeImport, "ksdb_share_fs_attribute_import",
            ksdb_share_fs_attribute_import,
            "share file-system attributes and fs.conf files");
        set(kReplisyncKeyImport, "ksdb_replisync_key_import", ksdb_replisync_key_import,
            "the replication authorized keys");

        set(kVpdExport, "ksdb_vpd_export", ksdb_vpd_export,
            "nothing (product data is read-only)");
        set(kDefaultServiceExport, "ksdb_default_service_export", ksdb_default_service_export,
            "the service tables into /etc/default/services");
        set(kCifsServiceExport, "ksdb_cifs_service_export", ksdb_cifs_service_export,
            "smb.conf, Shares.conf.admin, winbind.conf and usermap.conf");
        set(kAfpServiceExport, "ksdb_afp_service_export", ksdb_afp_service_export,
            "the AFP service file");
        set(kNfsServiceExport, "ksdb_nfs_service_export", ksdb_nfs_service_export,
            "/etc/default/nfs-kernel-server and /etc/idmapd.conf");
        set(kFtpServiceExport, "ksdb_ftp_service_export", ksdb_ftp_service_export,
            "proftpd.conf and ftps.conf");
        set(kHttpServiceExport, "ksdb_http_service_export", ksdb_http_service_export,
            "the HTTP service files");
        set(kMediaServerServiceExport, "ksdb_media_server_service_export",
            ksdb_media_server_service_export,
            "the media server's file");
        set(kDaapServiceExport, "ksdb_daap_service_export", ksdb_daap_service_export,
            "the DAAP server's file");
        set(kSnmpServiceExport, "ksdb_snmp_service_export", ksdb_snmp_service_export,
            "/etc/default/services and snmpd.conf");
        set(kSshServiceExport, "ksdb_ssh_service_export", ksdb_ssh_service_export,
            "sshd_config");
        set(kReplicateServiceExport, "ksdb_replicate_service_export",
            ksdb_replicate_service_export,
            "the replication registration file");
        set(kAntivirusServiceExport, "ksdb_antivirus_service_export",
            ksdb_antivirus_service_export,
            "clamd.conf");
        set(kVolumeExport, "ksdb_volume_export", ksdb_volume_export,
            "nothing (volumes are made by the storage tools)");
        set(kDiskExport, "ksdb_disk_export", ksdb_disk_export,
            "disk settings");
        set(kAccountLocalUserExport, "_ksdb_account_local_user_export",
            _ksdb_account_local_user_export,
            "passwd and shadow");
        set(kUsbStorageExport, "_ksdb_usb_storage_export", _ksdb_usb_storage_export,
            "the USB storage file");
        set(kZvolShareExport, "ksdb_zvol_share_export", ksdb_zvol_share_export,
            "per-share iscsi.conf files");
        set(kCifsShareExport, "ksdb_cifs_share_export", ksdb_cifs_share_export,
            "Shares.conf, per-share samba.conf and side files, dfs.conf, quotas");
        set(kAfpShareUsbShareExport, "_ksdb_afp_share_usb_share_export",
            _ksdb_afp_share_usb_share_export,
            "the AFP one-line files of USB shares");
        set(kNfsShareExport, "ksdb_nfs_share_export", ksdb_nfs_share_export,
            "/etc/exports and per-share nfs.conf files");
        set(kFtpShareExport, "ksdb_ftp_share_export", ksdb_ftp_share_export,
            "the FTP share file");
        set(kHttpShareExport, "ksdb_http_share_export", ksdb_http_share_export,
            "the HTTP share files");
        set(kDlnaExport, "ksdb_dlna_export", ksdb_dlna_export,
            "the DLNA server's file");
        set(kDaapExport, "ksdb_daap_export", ksdb_daap_export,
            "DAAP share settings");
        set(kRsyncExport, "ksdb_rsync_export", ksdb_rsync_export,
            "the rsync module file and secrets files");
        set(kSnapshotExport, "ksdb_snapshot_export", ksdb_snapshot_export,
            "per-share snapshot schedule and retention files");
        set(kBackupExport, "ksdb_backup_export", ksdb_backup_export,
            "the backup job file, its cron file and address list");
        set(kReplisyncExport, "ksdb_replisync_export", ksdb_replisync_export,
            "the replication job file");
        set(kNetworkExport, "ksdb_network_export", ksdb_network_export,
            "nothing (interfaces are configured elsewhere)");
        set(kServiceSwitchExport, "ksdb_service_switch_export", ksdb_service_switch_export,
            "the service switches into /etc/default/services");
        set(kVaultExport, "ksdb_vault_export", ksdb_vault_export,
            "the cloud vault client's file");
        set(kTivoExport, "ksdb_tivo_export", ksdb_tivo_export,
            "the TiVo server's file");
        set(kUpsServiceExport, "ksdb_ups_service_export", ksdb_ups_service_export,
            "the UPS shared-hosts file");
        set(kUpsExport, "ksdb_ups_export", ksdb_ups_export,
            "the UPS configuration files");
        set(kVolumeScheduleExport, "ksdb_volume_schedule_export", ksdb_volume_schedule_export,
            "each volume's schedule file and the cron file");
        set(kAuthorizedKeyExport, "ksdb_authorized_ssh_public_key_export",
            ksdb_authorized_ssh_public_key_export,
            "the SSH key configuration and authorized_keys files");
        set(kShareFsAttributeExport, "ksdb_share_fs_attribute_export",
            ksdb_share_fs_attribute_export,
            "share file-system attributes and fs.conf files");
        set(kReplisyncKeyExport, "ksdb_replisync_key_export", ksdb_replisync_key_export,
            "the replication authorized keys");
    }
};

// ---- chains ------------------------------------------------------------------

constexpr Step kAllServiceImportChain[] = {
    kDefaultServiceImport, kCifsServiceImport, kAfpServiceImport,  kNfsServiceImport,
    kFtpServiceImport,     kHttpServiceImport, kEmptyServiceImport, kDaapServiceImport,
    kSnmpServiceImport,    kSshServiceImport,  kReplicateServiceImport,
};
constexpr Step kAllShareImportChain[] = {
    kZvolShareImport, kCifsShareImport, kAfpShareImport,  kNfsShareImport, kDaapShareImport,
    kRsyncImport,     kFtpShareImport,  kHttpShareImport, kSnapshotImport,
};
constexpr Step kHotplugUsbImportChain[] = {
    kUsbHotplugImport,  kUsbStorageExport,   kCifsUsbShareImport, kAfpUsbShareImport,
    kNfsUsbShareImport, kFtpUsbShareImport,  kHttpUsbShareImport, kRsyncUsbImport,
    kDaapShareImport,   kDlnaImport,
};
constexpr Step kVolumeImportChain[] = {kVolumeImport, kAccountImport};
constexpr Step kAllServiceExportChain[] = {
    kDefaultServiceExport,     kDlnaExport,         kCifsServiceExport, kAfpServiceExport,
    kNfsServiceExport,         kFtpServiceExport,   kHttpServiceExport, kMediaServerServiceExport,
    kDaapServiceExport,        kSnmpServiceExport,  kAntivirusServiceExport, kSshServiceExport,
};
constexpr Step kAllShareExportChain[] = {
    kZvolShareExport, kCifsShareExport, kAfpShareUsbShareExport, kDlnaExport,
    kNfsShareExport,  kDaapExport,      kRsyncExport,            kFtpShareExport,
    kHttpShareExport, kSnapshotExport,
};

template <size_t N>
constexpr Plan chain(const Step (&steps)[N], bool nested_sync = false) {
    return Plan{PlanKind::kChain, kVpdImport, steps, static_cast<int>(N), nested_sync};
}
constexpr Plan step(Step s) { return Plan{PlanKind::kStep, s, nullptr, 0, false}; }
constexpr Plan kNothing{PlanKind::kNothing, kVpdImport, nullptr, 0, false};
constexpr Plan kNotExportable{PlanKind::kNotExportable, kVpdImport, nullptr, 0, false};
constexpr Plan kAllRun{PlanKind::kAll, kVpdImport, nullptr, 0, false};

}  // namespace

StepEntry g_steps[kStepCount];
namespace {
StepTableInit g_step_table_init;
}  // namespace

bool in_driver_transaction() { return t_in_transaction; }

namespace {
std::map<std::string, int> &step_states() {
    static std::map<std::string, int> states;
    return states;
}
}  // namespace

StepStateRegistration::StepStateRegistration(const char *name, int state) {
    step_states()[name] = state;
}

int step_state(const char *name) {
    auto it = step_states().find(name);
    return it == step_states().end() ? KSDB_STEP_PROVIDED : it->second;
}

// The plans of every category, indexed by category: import, then export.
const CategoryPlan kCategoryPlans[KSDB_CATEGORY_COUNT] = {
    /* 0 NONE */ {kNothing, kNothing},
    /* 1 ALL */ {kAllRun, kAllRun},
    /* 2 VPD */ {step(kVpdImport), step(kVpdExport)},
    /* 3 ALL_SERVICE */ {chain(kAllServiceImportChain), chain(kAllServiceExportChain, true)},
    /* 4 DEFAULT_SERVICE */ {step(kDefaultServiceImport), step(kDefaultServiceExport)},
    /* 5 CIFS_SERVICE */ {step(kCifsServiceImport), step(kCifsServiceExport)},
    /* 6 AFP_SERVICE */ {step(kAfpServiceImport), step(kAfpServiceExport)},
    /* 7 NFS_SERVICE */ {step(kNfsServiceImport), step(kNfsServiceExport)},
    /* 8 FTP_SERVICE */ {step(kFtpServiceImport), step(kFtpServiceExport)},
    /* 9 HTTP_SERVICE */ {step(kHttpServiceImport), step(kHttpServiceExport)},
    /* 10 SNMP_SERVICE */ {step(kSnmpServiceImport), step(kSnmpServiceExport)},
    /* 11 SSH_SERVICE */ {step(kSshServiceImport), step(kSshServiceExport)},
    /* 12 REPLICATE_SERVICE */ {step(kReplicateServiceImport), step(kReplicateServiceExport)},
    /* 13 VOLUME */ {chain(kVolumeImportChain), step(kVolumeExport)},
    /* 14 DISK */ {step(kDiskImport), step(kDiskExport)},
    /* 15 ACCOUNT */ {step(kAccountImport), step(kAccountLocalUserExport)},
    /* 16 ADS_ACCOUNT */ {step(kAdsAccountImport), kNotExportable},
    /* 17 USB */ {step(kUsbImport), step(kUsbStorageExport)},
    /* 18 SHARE_STATS */ {step(kShareStatsImport), kNothing},
    /* 19 ALL_SHARE */ {chain(kAllShareImportChain), chain(kAllShareExportChain, true)},
    /* 20 ZVOL_SHARE */ {step(kZvolShareImport), step(kZvolShareExport)},
    /* 21 CIFS_SHARE */ {step(kCifsShareImport), step(kCifsShareExport)},
    /* 22 AFP_SHARE */ {step(kAfpShareImport), step(kAfpShareUsbShareExport)},
    /* 23 NFS_SHARE */ {step(kNfsShareImport), step(kNfsShareExport)},
    /* 24 FTP_SHARE */ {step(kFtpShareImport), step(kFtpShareExport)},
    /* 25 HTTP_SHARE */ {step(kHttpShareImport), step(kHttpShareExport)},
    /* 26 DLNA */ {step(kDlnaImport), step(kDlnaExport)},
    /* 27 RSYNC */ {step(kRsyncImport), step(kRsyncExport)},
    /* 28 SNAPSHOT */ {step(kSnapshotImport), step(kSnapshotExport)},
    /* 29 BACKUP */ {step(kBackupImport), step(kBackupExport)},
    /* 30 REPLISYNC */ {step(kReplisyncImport), step(kReplisyncExport)},
    /* 31 NETWORK */ {step(kNetworkImport), step(kNetworkExport)},
    /* 32 SERVICE */ {step(kServiceImport), step(kServiceSwitchExport)},
    /* 33 AVAHI_SERVICE */ {kNothing, kNothing},
    /* 34 VAULT_SETTINGS */ {step(kVaultImport), step(kVaultExport)},
    /* 35 TIVO_SETTINGS */ {step(kTivoImport), step(kTivoExport)},
    /* 36 UPS_SERVICE */ {step(kDefaultServiceImport), step(kUpsServiceExport)},
    /* 37 ANTIVIRUS_SERVICE */ {kNothing, step(kAntivirusServiceExport)},
    /* 38 DICTIONARY */ {step(kDictionaryImport), kNotExportable},
    /* 39 UPS */ {step(kUpsImport), step(kUpsExport)},
    /* 40 LOCAL_UPS */ {step(kLocalUpsImport), kNotExportable},
    /* 41 HOTPLUG_USB */ {chain(kHotplugUsbImportChain), kNotExportable},
    /* 42 VOLUME_SCHEDULE */ {step(kVolumeScheduleImport), step(kVolumeScheduleExport)},
    /* 43 HF_STATS */ {step(kHfStatsImport), kNothing},
    /* 44 AUTHORIZED_SSH_PUBLIC_KEY */ {step(kAuthorizedKeyImport), step(kAuthorizedKeyExport)},
    /* 45 SHARE_FS_ATTRIBUTE */ {step(kShareFsAttributeImport), step(kShareFsAttributeExport)},
    /* 46 REPLISYNC_KEY */ {step(kReplisyncKeyImport), step(kReplisyncKeyExport)},
};

Chain import_chain(int category) {
    if (category < 0 || category >= KSDB_CATEGORY_COUNT) return {nullptr, 0};
    const Plan &p = kCategoryPlans[category].import_plan;
    return p.kind == PlanKind::kChain ? Chain{p.chain, p.chain_len} : Chain{nullptr, 0};
}

Chain export_chain(int category) {
    if (category < 0 || category >= KSDB_CATEGORY_COUNT) return {nullptr, 0};
    const Plan &p = kCategoryPlans[category].export_plan;
    return p.kind == PlanKind::kChain ? Chain{p.chain, p.chain_len} : Chain{nullptr, 0};
}

namespace {

int run_step(ksdb_handle *h, sqlite3 *db, Step s) {
    const StepEntry &e = g_steps[s];
    const ksdb_observer *obs = current_observer();
    if (obs && obs->step) obs->step(obs->arg, e.name, 0, 0);
    int rc = e.fn(h, db);
    obs = current_observer();
    if (obs && obs->step) obs->step(obs->arg, e.name, 1, rc);
    return rc;
}

// A chain: the first failure stops it and gives 1.
int run_chain(ksdb_handle *h, sqlite3 *db, const Plan &p) {
    for (int i = 0; i < p.chain_len; ++i)
        if (run_step(h, db, p.chain[i]) != 0) return 1;
    return 0;
}

int import_work(ksdb_handle *h, sqlite3 *db, int category);
int export_work(ksdb_handle *h, sqlite3 *db, int category);

// The ALL import.  The first failure stops the run and its own result is
// kept; the last four steps name their failure in the log.
int import_all(ksdb_handle *h, sqlite3 *db) {
    struct Item {
        int nested_category;  // -1: a step
        Step step;
        const char *failure;
    };
    static const Item kItems[] = {
        {-1, kVpdImport, nullptr},
        {-1, kVolumeImport, nullptr},
        {-1, kDiskImport, nullptr},
        {KSDB_CAT_ALL_SERVICE, kVpdImport, nullptr},
        {-1, kAccountImport, nullptr},
        {-1, kUsbImport, nullptr},
        {KSDB_CAT_ALL_SHARE, kVpdImport, nullptr},
        {-1, kBackupImport, nullptr},
        {-1, kReplisyncImport, nullptr},
        {-1, kNetworkImport, nullptr},
        {-1, kVaultImport, nullptr},
        {-1, kTivoImport, nullptr},
        {-1, kDictionaryImport, nullptr},
        {-1, kDlnaImport, nullptr},
        {-1, kUpsImport, nullptr},
        {-1, kVolumeScheduleImport, nullptr},
        {-1, kAuthorizedKeyImport, "Failed to import authorized ssh public key!\n"},
        {-1, kShareFsAttributeImport, "Failed to import share fs attribute!\n"},
        {-1, kShareStatsImport, "Failed to import share stats!\n"},
        {-1, kReplisyncKeyImport, "Failed to import authorized replisync key!\n"},
    };
    int rc = 0;
    for (const Item &item : kItems) {
        rc = item.nested_category >= 0 ? import_work(h, db, item.nested_category)
                                       : run_step(h, db, item.step);
        if (rc != 0) {
            if (item.failure) KSDB_ERR(h, "%s", item.failure);
            break;
        }
    }
    sync();
    return rc;
}

// The ALL export.  Its result is the SSH-key exporter's alone: an earlier
// failure skips the steps after it and is reported by its own exit log, but
// does not reach the caller.
int export_all(ksdb_handle *h, sqlite3 *db) {
    KSDB_INFO(h, "_ksdb_all_export\n");
    struct Item {
        int nested_category;
        Step step;
    };
    static const Item kItems[] = {
        {-1, kVpdExport},         {KSDB_CAT_ALL_SERVICE, kVpdExport},
        {-1, kVolumeExport},      {-1, kAccountLocalUserExport},
        {-1, kUsbStorageExport},  {KSDB_CAT_ALL_SHARE, kVpdExport},
        {-1, kRsyncExport},       {-1, kBackupExport},
        {-1, kNetworkExport},     {-1, kVaultExport},
        {-1, kTivoExport},        {-1, kUpsExport},
    };
    bool failed = false;
    for (const Item &item : kItems) {
        int rc = item.nested_category >= 0 ? export_work(h, db, item.nested_category)
                                           : run_step(h, db, item.step);
        if (rc != 0) {
            failed = true;
            break;
        }
    }
    if (!failed) run_step(h, db, kAntivirusServiceExport);  // its result is ignored
    int rc = run_step(h, db, kAuthorizedKeyExport);
    if (rc != 0) KSDB_ERR(h, "Failed to export authorized ssh public key!\n");
    sync();
    return rc;
}

int import_work(ksdb_handle *h, sqlite3 *db, int category) {
    const Plan &p = kCategoryPlans[category].import_plan;
    switch (p.kind) {
    case PlanKind::kNothing: return 0;
    case PlanKind::kStep: return run_step(h, db, p.step);
    case PlanKind::kChain: return run_chain(h, db, p);
    case PlanKind::kNotExportable: return KSDB_E_INVAL;
    case PlanKind::kAll: return import_all(h, db);
    }
    return KSDB_E_INVAL;
}

int export_work(ksdb_handle *h, sqlite3 *db, int category) {
    const Plan &p = kCategoryPlans[category].export_plan;
    switch (p.kind) {
    case PlanKind::kNothing: return 0;
    case PlanKind::kStep: return run_step(h, db, p.step);
    case PlanKind::kChain: {
        int rc = run_chain(h, db, p);
        if (p.nested_sync) sync();
        return rc;
    }
    case PlanKind::kNotExportable: return KSDB_E_INVAL;
    case PlanKind::kAll: return export_all(h, db);
    }
    return KSDB_E_INVAL;
}

bool valid_category(int category) { return category >= 0 && category < KSDB_CATEGORY_COUNT; }

// Begins the driver's transaction.  When BEGIN fails the database lock taken
// by ksdb_sql_begin is released again without a ROLLBACK, which could undo a
// transaction of the caller's own.
bool begin(ksdb_handle *h, sqlite3 *db) {
    if (ksdb_sql_begin(h, db, nullptr, KSDB_TAG) == SQLITE_OK) return true;
    if (h->db_mutex) pthread_mutex_unlock(h->db_mutex);
    return false;
}

using Work = int (*)(ksdb_handle *, sqlite3 *, int);

// The transaction frame shared by import and export.
int in_transaction(ksdb_handle *h, sqlite3 *db, int category, Work work) {
    if (!begin(h, db)) return KSDB_E_DB;
    if (!valid_category(category)) {
        ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
        return KSDB_E_INVAL;
    }
    bool outer = t_in_transaction;
    t_in_transaction = true;
    int rc = work(h, db, category);
    t_in_transaction = outer;
    if (rc != 0) {
        ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
        return rc;
    }
    if (ksdb_sql_commit(h, db, nullptr, KSDB_TAG) != SQLITE_OK) {
        ksdb::rollback_after_failed_commit(h, db, KSDB_TAG);
        return KSDB_E_DB;
    }
    return 0;
}

int without_transaction(ksdb_handle *h, sqlite3 *db, int category, Work work) {
    if (!valid_category(category)) return KSDB_E_INVAL;
    return work(h, db, category);
}

// Every step a plan runs, the composite categories flattened, in order.
void flatten(int category, bool exporting, std::vector<Step> *out) {
    const CategoryPlan &cp = kCategoryPlans[category];
    const Plan &p = exporting ? cp.export_plan : cp.import_plan;
    switch (p.kind) {
    case PlanKind::kNothing:
    case PlanKind::kNotExportable: return;
    case PlanKind::kStep: out->push_back(p.step); return;
    case PlanKind::kChain: out->insert(out->end(), p.chain, p.chain + p.chain_len); return;
    case PlanKind::kAll: break;
    }
    if (!exporting) {
        for (Step s : {kVpdImport, kVolumeImport, kDiskImport}) out->push_back(s);
        flatten(KSDB_CAT_ALL_SERVICE, false, out);
        for (Step s : {kAccountImport, kUsbImport}) out->push_back(s);
        flatten(KSDB_CAT_ALL_SHARE, false, out);
        for (Step s : {kBackupImport, kReplisyncImport, kNetworkImport, kVaultImport, kTivoImport,
                       kDictionaryImport, kDlnaImport, kUpsImport, kVolumeScheduleImport,
                       kAuthorizedKeyImport, kShareFsAttributeImport, kShareStatsImport,
                       kReplisyncKeyImport})
            out->push_back(s);
    } else {
        out->push_back(kVpdExport);
        flatten(KSDB_CAT_ALL_SERVICE, true, out);
        for (Step s : {kVolumeExport, kAccountLocalUserExport, kUsbStorageExport})
            out->push_back(s);
        flatten(KSDB_CAT_ALL_SHARE, true, out);
        for (Step s : {kRsyncExport, kBackupExport, kNetworkExport, kVaultExport, kTivoExport,
                       kUpsExport, kAntivirusServiceExport, kAuthorizedKeyExport})
            out->push_back(s);
    }
}

}  // namespace
}  // namespace ksdb::driver

extern "C" {

int ksdb_category_steps(int category, int direction, ksdb_step_info *steps, int max) {
    using namespace ksdb::driver;
    if (!valid_category(category) || (direction != 0 && direction != 1)) return -1;
    const CategoryPlan &cp = kCategoryPlans[category];
    if (direction == 1 && cp.export_plan.kind == PlanKind::kNotExportable)
        return KSDB_STEPS_NOT_EXPORTABLE;
    std::vector<Step> flat;
    flatten(category, direction == 1, &flat);
    for (size_t i = 0; i < flat.size() && steps && static_cast<int>(i) < max; ++i) {
        const StepEntry &e = g_steps[flat[i]];
        steps[i] = ksdb_step_info{e.name, e.what, step_state(e.name)};
    }
    return static_cast<int>(flat.size());
}

int ksdb_connect(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_connect", [&]() -> int {
        int64_t version = 0;
        if (ksdb_sql_get_int64_mprintf(h, db, nullptr, KSDB_TAG, &version, nullptr,
                                       "PRAGMA user_version") != SQLITE_OK)
            return KSDB_E_DB;
        if (version != ksdb::schema::kVersion) return KSDB_E_INVAL;
        // The scratch tables' statements of the creation list, and nothing
        // that would touch a stored or mirror table.
        for (const char *const *sql = ksdb::schema::kCreation; *sql; ++sql) {
            if (!ksdb::schema::is_scratch_statement(*sql)) continue;
            if (ksdb_sql_exec(h, db, nullptr, KSDB_TAG, *sql) != SQLITE_OK) return KSDB_E_DB;
        }
        return ksdb_volume_import(h, db) == 0 ? 0 : KSDB_E_DB;
    });
}

int ksdb_import(ksdb_handle *h, sqlite3 *db, int category) {
    KSDB_FAULT_GUARD(h);
    return ksdb::logged(h, KSDB_TAG, "ksdb_import", [&] {
        return ksdb::driver::in_transaction(h, db, category, ksdb::driver::import_work);
    });
}

int ksdb_export(ksdb_handle *h, sqlite3 *db, int category) {
    KSDB_FAULT_GUARD(h);
    return ksdb::logged(h, KSDB_TAG, "ksdb_export", [&] {
        return ksdb::driver::in_transaction(h, db, category, ksdb::driver::export_work);
    });
}

int ksdb_import_nolock(ksdb_handle *h, sqlite3 *db, int category) {
    KSDB_FAULT_GUARD(h);
    return ksdb::logged(h, KSDB_TAG, "ksdb_import_nolock", [&] {
        return ksdb::driver::without_transaction(h, db, category, ksdb::driver::import_work);
    });
}

int ksdb_export_nolock(ksdb_handle *h, sqlite3 *db, int category) {
    KSDB_FAULT_GUARD(h);
    return ksdb::logged(h, KSDB_TAG, "ksdb_export_nolock", [&] {
        return ksdb::driver::without_transaction(h, db, category, ksdb::driver::export_work);
    });
}

int ksdb_export_per_share(ksdb_handle *h, sqlite3 *db, int category, const char *share) {
    if (!ksdb::driver::begin(h, db)) return KSDB_E_DB;
    int rc = category == KSDB_CAT_SHARE_FS_ATTRIBUTE
                 ? ksdb_share_fs_attribute_export_per_share(h, db, share)
                 : KSDB_E_INVAL;
    if (rc != 0) {
        ksdb_sql_rollback(h, db, nullptr, KSDB_TAG);
    } else if (ksdb_sql_commit(h, db, nullptr, KSDB_TAG) != SQLITE_OK) {
        ksdb::rollback_after_failed_commit(h, db, KSDB_TAG);
        rc = KSDB_E_DB;
    }
    sync();
    return rc;
}

}  // extern "C"
