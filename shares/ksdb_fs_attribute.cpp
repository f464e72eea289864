// Per-share file-system attributes and space statistics.
//
// Three attributes of every share folder (compression, bit-rot protection
// and the reference quota) are kept in step between the zfs_attr table,
// the file system and the share's own fs.conf:
//
//     compression = 1
//     bitrotprotection = 0
//     refquota = 100
//
// The import reads the file system and lets fs.conf override it; the export
// applies the table to the file system through the attribute setter and
// rewrites fs.conf.  The statistics import measures every share (a share
// published from a snapshot on its newest snapshot) into _zfs_stat.
#define KSDB_MODULE "ksdb_fs_attribute"
#include "storage/ksdb_snapshot.h"

#include "core/ksdb_area.h"
#include "core/ksdb_areas.h"
#include "platform/platform.h"

#include <strings.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace ksdb::fs_attribute {
namespace {

constexpr unsigned long long kMiB = 1048576;

constexpr char kImportQuery[] =
    "SELECT id, zfs_name, volume_id, name FROM `share` WHERE type = 'share' OR type = "
    "'readonly'";
constexpr char kExportQuery[] =
    "SELECT S.name,S.volume_id,Z.mb_refquota,Z.compression,Z.bit_rot_protection FROM `share` "
    "S, `zfs_attr` Z WHERE S.type = 'share' AND S.id = Z.share_id";
constexpr char kOneShare[] = " AND S.name = %Q";
enum ExportColumn { kName, kVolume, kRefquota, kCompression, kBitRot };

constexpr char kStatsQuery[] = "SELECT S.id,S.zfs_name,S.type,S.path FROM share S";

// fs.conf is read back by splitting each line at "=" into exactly two
// trimmed fields: a value holding "=" would be dropped, blanks around it
// would be lost.
const ValueRule kFsConfValue{"a value of fs.conf", "=",
                             kValueNoLeadingBlank | kValueNoTrailingBlank};

std::string folder_of(std::string_view volume, std::string_view share) {
    return "/" + std::string(volume) + "/" + std::string(share);
}

// A flag of fs.conf: a number counts when it is not zero, a word when it is
// "yes", "on" or "true" in any case.
bool parse_flag(const std::string &v) {
    if (v.empty()) return false;
    char *end = nullptr;
    long n = std::strtol(v.c_str(), &end, 10);
    if (end != v.c_str() && *end == '\0') return n != 0;
    return strcasecmp(v.c_str(), "yes") == 0 || strcasecmp(v.c_str(), "on") == 0 ||
           strcasecmp(v.c_str(), "true") == 0;
}

// The quota-group figures of a live path; a missing path or quota group
// leaves them zero without a word, any other failure is logged.
ksdb_qgroup_info qgroup_of(ksdb_handle *h, const std::string &dataset) {
    ksdb_qgroup_info info{};
    int rc = btrfs_get_qgroup_info(effective_path(h, "/" + dataset).c_str(), &info);
    if (rc != 0) {
        if (rc != -ENOENT)
            KSDB_ERR(h, "Failed to get quota config for %s (%s)\n", dataset.c_str(),
                     std::strerror(rc < 0 ? -rc : rc));
        info = ksdb_qgroup_info{};
    }
    return info;
}

// An attribute read with the getter is on only when it says exactly "on".
int attribute_on(ksdb_handle *h, const std::string &folder, const char *name) {
    char *value = nullptr;
    return ksdb_btrfs_get_attr(h, folder.c_str(), name, &value) == 0 && value &&
           std::strcmp(value, "on") == 0;
}

// ---- import ------------------------------------------------------------------

struct Attributes {
    unsigned long long refquota = 0;  // bytes
    int compression = 0;
    int bit_rot_protection = 0;
};

// fs.conf overrides what the file system reported.
void read_fs_conf(ksdb_handle *h, const char *volume, const char *share, Attributes *a) {
    ConfFile conf(h, share_conf_dir(volume, share) + "/fs.conf");
    if (!conf.ok()) return;
    conf.lines([&](char *line) {
        std::string_view key, value;
        if (!split_key_value(line, '=', &key, &value) || value.find('=') != value.npos)
            return true;
        const std::string v(value);
        if (key == "compression")
            a->compression = parse_flag(v);
        else if (key == "bitrotprotection")
            a->bit_rot_protection = parse_flag(v);
        else if (key == "refquota")
            a->refquota = std::strtoull(v.c_str(), nullptr, 10) * kMiB;
        return true;
    });
}

const char *or_null(const char *text) { return text[0] ? text : nullptr; }

int import_attributes(ksdb_handle *h, sqlite3 *db) {
    SqlTable shares;
    if (shares.query(h, db, KSDB_TAG, kImportQuery) != SQLITE_OK) {
        KSDB_ERR(h, "%s: Failed DB Query for 'SELECT share'\n", "ksdb_share_fs_attribute_import");
        return KSDB_E_DB;
    }
    for (int r = 0; r < shares.rows(); ++r) {
        const char *volume = shares.at(r, 2);
        const char *name = shares.str(r, 3);
        const ksdb_qgroup_info info = qgroup_of(h, shares.str(r, 1));
        Attributes a;
        a.refquota = info.max_referenced;
        if (volume && *volume) {
            const std::string folder = folder_of(volume, name);
            a.compression = attribute_on(h, folder, "compression");
            a.bit_rot_protection = attribute_on(h, folder, "bitrotprotection");
            read_fs_conf(h, volume, name, &a);
        }
        // The row is written whatever the file system could tell.
        ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                              "INSERT OR REPLACE INTO zfs_attr (share_id,mb_quota,mb_reservation,"
                              "mb_refquota,mb_refreservation,compression,bit_rot_protection,"
                              "dedup,logbias,origin,sync) "
                              "VALUES(%d,%lu,%lu,%lu,%lu,%d,%d,%d,%Q,%Q,%Q)",
                              std::atoi(shares.str(r, 0)), 0UL, 0UL,
                              static_cast<unsigned long>(a.refquota / kMiB), 0UL, a.compression,
                              a.bit_rot_protection, 0, or_null(info.logbias),
                              or_null(info.origin), or_null(info.sync));
    }
    return 0;
}

// ---- export ------------------------------------------------------------------

// What a NULL column means: the all-shares export leaves a NULL flag's
// attribute as the file system has it; the single-share export takes NULL
// as "off".  A NULL quota is "none" in both.
enum class NullFlag { kUntouched, kOff };

// The quota as the setter takes it: "<n>M" for a positive number of MiB,
// "none" for anything else (so nothing that starts with "-" reaches the
// tool as an argument).
std::string quota_value(const char *column) {
    long long mb = column ? std::strtoll(column, nullptr, 10) : 0;
    return mb > 0 ? strprintf("%lldM", mb) : std::string("none");
}

// Applies the three attributes of one row; 0 or the setter's status.
int apply(ksdb_handle *h, const SqlTable &rows, int r, NullFlag null_flag) {
    const std::string folder = folder_of(rows.str(r, kVolume), rows.str(r, kName));
    struct Flag {
        const char *attribute;
        int column;
    };
    for (const Flag f : {Flag{"compression", kCompression}, Flag{"bitrotprotection", kBitRot}}) {
        const char *v = rows.at(r, f.column);
        if (!v && null_flag == NullFlag::kUntouched) continue;
        const char *word = v && std::strtol(v, nullptr, 10) != 0 ? "on" : "off";
        if (int rc = ksdb_btrfs_set_attr(h, folder.c_str(), f.attribute, word)) return rc;
    }
    const std::string quota = quota_value(rows.at(r, kRefquota));
    return ksdb_btrfs_set_attr(h, folder.c_str(), "refquota", quota.c_str());
}

// A share without a volume has no folder: it is left out.
bool has_volume(const SqlTable &rows, int r) { return *rows.str(r, kVolume) != '\0'; }

// Every value a row puts into a path, a command or fs.conf, before any of
// them is used: 0 or 4.
int guard_row(ksdb_handle *h, const SqlTable &rows, int r) {
    if (!has_volume(rows, r)) return 0;
    const char *name = rows.str(r, kName);
    if (int rc = guard_value(h, name, rules::kPathComponent, {"share", "name", name})) return rc;
    if (int rc = guard_value(h, rows.str(r, kVolume), rules::kPathComponent,
                             {"share", "volume_id", name}))
        return rc;
    const struct {
        int column;
        const char *name;
    } values[] = {{kCompression, "compression"},
                  {kBitRot, "bit_rot_protection"},
                  {kRefquota, "mb_refquota"}};
    for (const auto &v : values)
        if (int rc = guard_value(h, rows.at(r, v.column), kFsConfValue, {"zfs_attr", v.name, name}))
            return rc;
    return 0;
}

int write_fs_conf(ksdb_handle *h, const SqlTable &rows, int r) {
    std::string live;
    if (share_conf_path(h, rows.str(r, kVolume), rows.str(r, kName), "fs", &live) != 0)
        return KSDB_E_FILE;
    ManagedFile out(h, ksdb_file_spec{live.c_str(), 98, 98, 0644});
    if (!out.ok()) return KSDB_E_FILE;
    out.printf("compression = %s\n", rows.str(r, kCompression));
    out.printf("bitrotprotection = %s\n", rows.str(r, kBitRot));
    out.printf("refquota = %s\n", rows.str(r, kRefquota));
    return out.commit() != 0 ? KSDB_E_FILE : 0;
}

// The export of every share (share == nullptr) or of one.  A share whose
// attributes cannot be applied keeps its old fs.conf; the others go on,
// and the first such status is the result.  A file that cannot be written
// stops the export with 5.
int export_attributes(ksdb_handle *h, sqlite3 *db, const char *share, const char *func) {
    SqlTable rows;
    const std::string query = std::string(kExportQuery) + (share ? kOneShare : "");
    if (rows.query(h, db, KSDB_TAG, query.c_str(), share) != SQLITE_OK) {
        KSDB_ERR(h, "%s: Failed DB Query for 'SELECT zfs_attr'\n", func);
        return KSDB_E_DB;
    }
    for (int r = 0; r < rows.rows(); ++r)
        if (int rc = guard_row(h, rows, r)) return rc;

    const NullFlag null_flag = share ? NullFlag::kOff : NullFlag::kUntouched;
    int result = 0;
    for (int r = 0; r < rows.rows(); ++r) {
        if (!has_volume(rows, r)) continue;
        const char *name = rows.str(r, kName);
        if (int rc = apply(h, rows, r, null_flag)) {
            KSDB_ERR(h, "%s: Failed to set fs attributes of share %s\n", func, name);
            if (result == 0) result = rc;
            continue;
        }
        if (write_fs_conf(h, rows, r) != 0) {
            if (share)
                KSDB_ERR(h,
                         "%s: Failed to save fs attribute config, volume_name = %s, "
                         "share_name = %s.\n",
                         func, rows.str(r, kVolume), name);
            else
                KSDB_ERR(h, "%s: Cannot write fs.conf of share %s\n", func, name);
            return KSDB_E_FILE;
        }
    }
    return result;
}

// ---- statistics --------------------------------------------------------------

// The live path of a path below the debug root, or nothing when it lies
// outside it.
std::optional<std::string> live_path_of(const ksdb_handle *h, const std::string &path) {
    if (!debug_root_set(h)) return path;
    const std::string root = effective_path(h, "");
    if (path.compare(0, root.size(), root) != 0 ||
        (path.size() > root.size() && path[root.size()] != '/'))
        return std::nullopt;
    return path.substr(root.size());
}

// What a share is measured on: its dataset, or for a share published from
// a snapshot that snapshot's path (without its leading "/").  A snapshot
// that cannot be found leaves the dataset.
std::string measured_name(ksdb_handle *h, sqlite3 *db, const char *dataset, const char *path) {
    std::string snapshot;
    if (!latest_snapshot_name(h, db, dataset, &snapshot)) return dataset;
    KSDB_DEBUG(h, "Latest snapshot name. fs_name = %s, snapshot_name = %s\n", dataset,
               snapshot.c_str());
    const std::string share_path = *path ? std::string(path) : "/" + std::string(dataset);
    char *found = nullptr;
    if (snapshot_get_path(effective_path(h, share_path).c_str(), snapshot.c_str(), &found) != 0 ||
        !found)
        return dataset;
    std::optional<std::string> live = live_path_of(h, found);
    std::free(found);
    if (!live) return dataset;
    KSDB_DEBUG(h, "snapshot_path = %s\n", live->c_str());
    size_t start = live->find_first_not_of('/');
    return start == std::string::npos ? std::string() : live->substr(start);
}

int import_stats(ksdb_handle *h, sqlite3 *db) {
    SqlTable shares;
    if (shares.query(h, db, KSDB_TAG, kStatsQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Error in 'SELECT share'.");
        return KSDB_E_DB;
    }
    for (int r = 0; r < shares.rows(); ++r) {
        const char *dataset = shares.str(r, 1);
        const std::string name = strcasecmp(shares.str(r, 2), "readonly") == 0
                                     ? measured_name(h, db, dataset, shares.str(r, 3))
                                     : std::string(dataset);
        const ksdb_qgroup_info info = qgroup_of(h, name);
        unsigned long long used = info.referenced;
        unsigned long long available = 0;
        struct statvfs sv;
        if (used == 0 && name.find("USB_") != std::string::npos &&
            statvfs(effective_path(h, "/" + name).c_str(), &sv) == 0) {
            available = static_cast<unsigned long long>(sv.f_bavail) * sv.f_bsize;
            used = static_cast<unsigned long long>(sv.f_blocks) * sv.f_frsize - available;
        }
        char *text = nullptr;
        unsigned long long snapshots = 0;
        if (ksdb_btrfs_get_attr(h, ("/" + name).c_str(), "usedbysnapshots", &text) == 0 && text)
            snapshots = std::strtoull(text, nullptr, 10);
        if (ksdb_sql_exec_mprintf(
                h, db, nullptr, KSDB_TAG,
                "INSERT OR REPLACE INTO _zfs_stat (share_id,available,used,usedbychildren,"
                "usedbydataset,usedbyrefreservation,usedbysnapshots,compressratio) "
                "VALUES(%d,%lu,%lu,%lu,%lu,%lu,%lu,%Q)",
                std::atoi(shares.str(r, 0)), static_cast<unsigned long>(available),
                static_cast<unsigned long>(used), 0UL, static_cast<unsigned long>(used), 0UL,
                static_cast<unsigned long>(snapshots), or_null(info.compressratio)) != SQLITE_OK)
            return KSDB_E_DB;
    }
    return 0;
}

}  // namespace
}  // namespace ksdb::fs_attribute

int ksdb_share_fs_attribute_export_per_share(ksdb_handle *h, sqlite3 *db, const char *share) {
    if (!h || !db || !share) return KSDB_E_INVAL;
    return ksdb::logged(h, KSDB_TAG, "ksdb_share_fs_attribute_export_per_share", [&] {
        return ksdb::fs_attribute::export_attributes(h, db, share,
                                                     "ksdb_share_fs_attribute_export_per_share");
    });
}

KSDB_STEP(ksdb_share_fs_attribute_import) { return ksdb::fs_attribute::import_attributes(h, db); }

KSDB_STEP(ksdb_share_fs_attribute_export) {
    return ksdb::fs_attribute::export_attributes(h, db, nullptr, "ksdb_share_fs_attribute_export");
}

KSDB_STEP(ksdb_share_stats_import) { return ksdb::fs_attribute::import_stats(h, db); }
