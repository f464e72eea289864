// iSCSI LUN shares: a share whose storage is one backing-store file,
// "/<volume>/<share>/.iscsi/iscsi_lun_backing_store".  The import finds
// them on the volumes and records each as a share of type 'zvol' with the
// size of its backing store; the share's comment lives in its own
// iscsi.conf, one line "comment <text>", written by the export and read
// back by the import.
#define KSDB_MODULE "ksdb_zvol"
#include "core/ksdb_area.h"
#include "core/ksdb_areas.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace ksdb::zvol {
namespace {

constexpr char kBackingStore[] = "iscsi_lun_backing_store";
// iscsi.conf is small; a larger one is not read.
constexpr size_t kIscsiConfLimit = 262144;
constexpr char kCommentKey[] = "comment ";
constexpr size_t kCommentKeyLen = sizeof kCommentKey - 1;

constexpr char kExportQuery[] =
    "SELECT S.id,ZVOL.kb_size,ZVOL.is_sparse,(SELECT V.lv_name FROM _volume V WHERE "
    "V.id=S.volume_id),S.name,S.comment FROM zvol_share_option ZVOL INNER JOIN share S ON "
    "S.id=ZVOL.share_id ORDER BY S.name ASC";
enum ExportColumn { kVolume = 3, kName = 4, kComment = 5 };

// ---- import ------------------------------------------------------------------

// The comment lines of a LUN's iscsi.conf into its share row; the last one
// stays.  A missing or unreadable file leaves the comment as it is.
void read_iscsi_conf(ksdb_handle *h, sqlite3 *db, const char *volume, const char *share) {
    const std::string live = share_conf_dir(volume, share) + "/iscsi.conf";
    ConfFile conf(h, live, kIscsiConfLimit);
    if (!conf.ok()) {
        KSDB_INFO(h, "Cannot load %s. Ignore zvol share config.\n", live.c_str());
        return;
    }
    conf.lines([&](char *line) {
        while (*line == ' ' || *line == '\t') ++line;
        if (!*line || *line == '#' || std::strncmp(line, kCommentKey, kCommentKeyLen) != 0)
            return true;
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "UPDATE share SET comment=%Q WHERE name=%Q",
                                  line + kCommentKeyLen, share) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB insert 'REPLACE share'\n");
            return false;
        }
        return true;
    });
}

// Records one LUN share: 0, or 3 when a row could not be written.
int record_lun(ksdb_handle *h, sqlite3 *db, const char *volume, const char *share) {
    if (!fs::is_dir(h, share_conf_dir(volume, share))) return 0;
    struct stat st;
    const std::string store = strprintf("/%s/%s/.iscsi/%s", volume, share, kBackingStore);
    if (!fs::stat(h, store, &st) || !S_ISREG(st.st_mode)) return 0;

    int rc = ksdb_sql_exec_mprintf(
        h, db, nullptr, KSDB_TAG,
        "INSERT OR REPLACE INTO share(volume_id,zfs_name,name,type,path,user_id,group_id) "
        "VALUES((SELECT V.id from _volume V where V.lv_name=%Q),%Q,%Q,'zvol',%Q,0,0)",
        volume, strprintf("%s/%s", volume, share).c_str(), share,
        strprintf("/%s/%s", volume, share).c_str());
    if (rc == SQLITE_CONSTRAINT) {
        KSDB_ERR(h, "Ignore duplicate dataset name (%s).\n", share);
        return 0;
    }
    if (rc != SQLITE_OK) {
        KSDB_ERR(h, "Fail on 'INSERT INTO share'\n");
        return KSDB_E_DB;
    }
    const long long id = sqlite3_last_insert_rowid(db);
    // A backing store with fewer blocks than its size has holes.
    const unsigned long long bytes = static_cast<unsigned long long>(st.st_size);
    const int sparse = bytes > static_cast<unsigned long long>(st.st_blocks) * 512 ? 1 : 0;
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                              "INSERT OR REPLACE INTO zvol_share_option(share_id,kb_size,is_sparse) "
                              "VALUES(%d,%llu,%d)",
                              static_cast<int>(id), bytes >> 10, sparse) != SQLITE_OK) {
        KSDB_ERR(h, "Fail on 'INSERT INTO zvol_share_option'");
        return KSDB_E_DB;
    }
    read_iscsi_conf(h, db, volume, share);
    return 0;
}

// Every LUN share of every volume; a share that fails does not stop the
// others: 0, 3 when any failed, 8 when the listing cannot be run.
int _ksdb_zvol_scan_shares(ksdb_handle *h, sqlite3 *db) {
    int result = 0;
    int rc = ksdb_foreach_share_subvolume(
        h, db,
        [](ksdb_handle *h, sqlite3 *db, const char *volume, const char *share, void *arg) {
            if (record_lun(h, db, volume, share) != 0) *static_cast<int *>(arg) = KSDB_E_DB;
            return 0;
        },
        &result, 0);
    return rc != 0 ? rc : result;
}

// ---- export ------------------------------------------------------------------

// Every name that makes the path of iscsi.conf and every comment are
// checked before any file is written: 0 or 4.
int guard_rows(ksdb_handle *h, const SqlTable &rows) {
    for (int r = 0; r < rows.rows(); ++r) {
        const char *volume = rows.at(r, kVolume);
        if (!volume) continue;
        const char *name = rows.str(r, kName);
        if (int rc = guard_value(h, name, rules::kPathComponent, {"share", "name", name}))
            return rc;
        if (int rc = guard_value(h, volume, rules::kPathComponent, {"_volume", "lv_name", name}))
            return rc;
        if (int rc = guard_value(h, rows.at(r, kComment), rules::kLine, {"share", "comment", name}))
            return rc;
    }
    return 0;
}

int export_luns(ksdb_handle *h, sqlite3 *db) {
    SqlTable rows;
    if (rows.query(h, db, KSDB_TAG, kExportQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT zvol_share_option'\n");
        return KSDB_E_DB;
    }
    if (int rc = guard_rows(h, rows)) return rc;
    for (int r = 0; r < rows.rows(); ++r) {
        const char *volume = rows.at(r, kVolume);
        if (!volume) continue;
        std::string live;
        if (share_conf_path(h, volume, rows.str(r, kName), "iscsi", &live) != 0) continue;
        ManagedFile out(h, ksdb_file_spec{live.c_str(), 98, 98, 0644});
        if (!out.ok()) {
            KSDB_ERR(h, "Cannot open temporary file of %s\n", live.c_str());
            return KSDB_E_FILE;
        }
        // A NULL comment is written as an empty one.
        out.printf("%s%s\n", kCommentKey, rows.str(r, kComment));
        if (out.commit() != 0) {
            KSDB_ERR(h, "Cannot move file to %s\n", live.c_str());
            return KSDB_E_FILE;
        }
    }
    return 0;
}

}  // namespace
}  // namespace ksdb::zvol

KSDB_STEP(ksdb_zvol_share_import) { return ksdb::zvol::_ksdb_zvol_scan_shares(h, db); }

KSDB_STEP(ksdb_zvol_share_export) { return ksdb::zvol::export_luns(h, db); }
