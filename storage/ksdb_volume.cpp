// Volumes: the scratch table of the data volumes that the other areas join
// against, the persistent log of maintenance operations, and the space a
// subvolume uses.
#define KSDB_MODULE "ksdb_volume"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "platform/platform.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace ksdb {

namespace {

const char *health_word(int status) {
    switch (status) {
    case 1: return "REDUNDANT";
    case 2: return "UNPROTECTED";
    case 3: return "DEGRADED";
    case 4: return "DEAD";
    case 5: return "INACTIVE";
    default: return "UNKNOWN";
    }
}

int import_volumes(ksdb_handle *h, sqlite3 *db) {
    ksdb_volume_list list{};
    if (volume_scan(h->debug_root, &list) == 0) {
        for (int i = 0; i < list.count; ++i) {
            const ksdb_volume_entry &v = list.volumes[i];
            KSDB_DEBUG(h, "vol-name[%s]\n", v.name);
            if (v.flags & KSDB_VOLUME_IGNORED) continue;
            char uuid[40];
            std::snprintf(uuid, sizeof uuid, "%04hx%04hx-%04hx-%04hx-%04hx-%04hx%04hx%04hx",
                          v.uuid[0], v.uuid[1], v.uuid[2], v.uuid[3], v.uuid[4], v.uuid[5],
                          v.uuid[6], v.uuid[7]);
            const char *dev = v.ndevices > 0 ? v.devices[0] : "";
            if (ksdb_sql_exec_mprintf(
                    h, db, nullptr, KSDB_TAG,
                    "INSERT OR IGNORE INTO _volume "
                    "(id,lv_name,uuid,devname,blk_total,blk_free,blk_size,zfs_type,volume_health) "
                    "VALUES(%Q,%Q,%Q,%Q,%llu,%llu,1024,'',%Q)",
                    v.name, v.name, uuid, dev, static_cast<unsigned long long>(v.blk_total),
                    static_cast<unsigned long long>(v.blk_free),
                    health_word(v.status)) != SQLITE_OK)
                KSDB_ERR(h, "Error writing to _volume table\n");
        }
        free_volume(&list);
    }
    // Removable media always appear as the pseudo-volume "media".
    if (ksdb_sql_exec(h, db, nullptr, KSDB_TAG,
                      "INSERT OR IGNORE INTO _volume (id,lv_name,blk_size) "
                      "VALUES('media','media',0)") != SQLITE_OK) {
        KSDB_ERR(h, "Error writing to _volume table\n");
        return KSDB_E_DB;
    }
    return 0;
}

int maint_log(ksdb_handle *h, sqlite3 *db, const char *operation, const char *device, int phase,
              const char *result, const char *details) {
    if (!operation || !device) return KSDB_E_INVAL;
    long now = static_cast<long>(time(nullptr));
    if (phase == 0) {
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "INSERT INTO '$vol_maint_log' (operation,device,start_time) "
                                  "VALUES(%Q,%Q,'%ld')",
                                  operation, device, now) != SQLITE_OK) {
            KSDB_ERR(h, "Error adding new record to $vol_maint_log table\n");
            return KSDB_E_DB;
        }
        return 0;
    }
    if (phase != 1) return 0;
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT start_time FROM '$vol_maint_log' WHERE operation=%Q AND device=%Q AND "
                "end_time IS NULL ORDER BY start_time DESC LIMIT 1",
                operation, device) != SQLITE_OK) {
        KSDB_ERR(h, "Error finding last operation in $vol_maint_log table\n");
        return KSDB_E_DB;
    }
    if (t.rows() == 1) {
        long start = std::strtol(t.str(0, 0), nullptr, 10);
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "UPDATE '$vol_maint_log' SET end_time='%ld',result=%Q,details=%Q "
                                  "WHERE operation=%Q AND device=%Q AND start_time='%ld'",
                                  now, result, details, operation, device,
                                  start) != SQLITE_OK) {
            KSDB_ERR(h, "Error updating $vol_maint_log table\n");
            return KSDB_E_DB;
        }
        return 0;
    }
    // An end without a recorded start is still kept, as a record that
    // started at time 0.
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                              "INSERT INTO '$vol_maint_log' "
                              "(operation,device,start_time,end_time,result,details) "
                              "VALUES(%Q,%Q,'%ld','%ld',%Q,%Q)",
                              operation, device, 0L, now, result, details) != SQLITE_OK) {
        KSDB_ERR(h, "Error adding end_time to $vol_maint_log table\n");
        return KSDB_E_DB;
    }
    return 0;
}

// A size text of the attribute reader as bytes: decimal digits, optionally
// followed by a binary unit letter (K, M, G, T, P).
bool parse_bytes(const char *text, uint64_t *out) {
    char *end = nullptr;
    errno = 0;
    double value = std::strtod(text, &end);
    if (end == text || errno != 0 || value < 0) return false;
    while (*end == ' ') ++end;
    uint64_t unit = 1;
    switch (std::toupper(static_cast<unsigned char>(*end))) {
    case '\0': break;
    case 'K': unit = 1ull << 10; break;
    case 'M': unit = 1ull << 20; break;
    case 'G': unit = 1ull << 30; break;
    case 'T': unit = 1ull << 40; break;
    case 'P': unit = 1ull << 50; break;
    default: return false;
    }
    *out = static_cast<uint64_t>(value * static_cast<double>(unit));
    return true;
}

}  // namespace

}  // namespace ksdb

int ksdb_volume_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_volume_import",
                        [&] { return ksdb::import_volumes(h, db); });
}

extern "C" {

int ksdb_update_vol_maint_log(ksdb_handle *h, sqlite3 *db, const char *operation,
                              const char *device, int phase, const char *result,
                              const char *details) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_update_vol_maint_log", [&] {
        return ksdb::maint_log(h, db, operation, device, phase, result, details);
    });
}

int ksdb_get_subvolume_used_in_bytes(ksdb_handle *h, sqlite3 *db, const char *path,
                                     uint64_t *out) {
    if (!h || !db || !path || !out) return KSDB_E_INVAL;
    char *text = nullptr;
    int rc = ksdb_btrfs_get_attr(h, path, "used", &text);
    if (rc != 0) return rc;
    if (!ksdb::parse_bytes(text, out)) return KSDB_E_FILE;
    return 0;
}

}  // extern "C"
