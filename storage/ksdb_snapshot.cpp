// Snapshots: each share's snapshot schedule (snapshot.conf) and retention
// settings (the management and 7x24 schedule files) in its configuration
// folder, the home folders' retention settings under /etc/quillfold, the
// scan of the snapshots that exist on the volumes into `$snapshot`, and the
// size and newest-name look-ups.
#define KSDB_MODULE "ksdb_snapshot"
#include "core/ksdb_area.h"
#include "storage/ksdb_snapshot.h"
#include "core/ksdb_areas.h"
#include "platform/platform.h"
#include "util/ksdb_job_files.h"
#include "util/ksdb_string_utils.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ksdb::snapshot {
namespace {

constexpr char kHomeManagement[] = "/etc/quillfold/custom_snapshot_management.conf";
constexpr char kHomeSchedule[] = "/etc/quillfold/custom_snapshot_schedule.conf";
constexpr char kScheduleAttr[] = "com.kestrava.res.ksdb.snapshot:config";
constexpr int kHours = 7 * 24;
constexpr size_t kLineMax = 1280;

std::string share_file(const char *volume, const char *share, const char *name) {
    return share_conf_dir(volume ? volume : "", share ? share : "") + "/" + name + ".conf";
}

// Settings kept in a share folder's extended attributes are not read: this
// reader reads nothing and gives -1, so a share without snapshot.conf has no
// schedule.
int ksdb_fs_get_attr_scanf(ksdb_handle *, const char *, const char *, const char *, ...) {
    return -1;
}

// ---- schedule (snapshot.conf) ----------------------------------------------------

// The first line of snapshot.conf as the one-line reader gives it (lines
// that begin with white space are passed over), or the share attribute.
std::optional<std::string> schedule_line(ksdb_handle *h, const char *volume, const char *share) {
    const std::string path = share_file(volume, share, "snapshot");
    if (fs::readable(h, path)) {
        ConfFile conf(h, path);
        if (!conf.ok()) return std::nullopt;
        std::string line;
        conf.lines([&](char *l) {
            line.assign(l, std::min(std::strlen(l), kLineMax));
            return std::isspace(static_cast<unsigned char>(line[0])) != 0;
        });
        while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
        return line;
    }
    char buf[kLineMax + 1];
    const std::string folder = std::string(volume ? volume : "") + "/" + (share ? share : "");
    if (ksdb_fs_get_attr_scanf(h, folder.c_str(), kScheduleAttr, "%1280[^\n]", buf) == 1)
        return std::string(buf);
    return std::nullopt;
}

int import_schedules(ksdb_handle *h, sqlite3 *db) {
    SqlTable shares;
    if (shares.query(h, db, KSDB_TAG, "SELECT name,volume_id FROM share") != SQLITE_OK)
        return KSDB_E_DB;
    for (int r = 0; r < shares.rows(); ++r) {
        auto line = schedule_line(h, shares.at(r, 1), shares.str(r, 0));
        if (!line || line->empty() || (*line)[0] == '-') continue;
        // Seven fields separated by single blanks: a flag, five cron-like
        // time fields, a flag.
        std::vector<std::string> f;
        for (size_t p = 0;;) {
            size_t q = line->find(' ', p);
            f.push_back(line->substr(p, q == std::string::npos ? q : q - p));
            if (q == std::string::npos) break;
            p = q + 1;
        }
        if (f.size() != 7) continue;
        if (ksdb_sql_exec_mprintf(
                h, db, nullptr, KSDB_TAG,
                "INSERT OR REPLACE INTO snapshot_schedule (share_id,enabled,minute,hour,"
                "day_of_month,day_of_week,month,purge_manual_snapshot) VALUES((SELECT S.id FROM "
                "share S WHERE S.name=%Q),%d,%Q,%Q,%Q,%Q,%Q,%d)",
                shares.str(r, 0), std::atoi(f[0].c_str()), f[1].c_str(), f[2].c_str(),
                f[3].c_str(), f[4].c_str(), f[5].c_str(), std::atoi(f[6].c_str())) != SQLITE_OK) {
            KSDB_ERR(h, "Failed DB update 'INSERT snapshot_schedule'\n");
            return KSDB_E_DB;
        }
    }
    return 0;
}

constexpr char kScheduleQuery[] =
    "SELECT V.lv_name||'/'||S.name,SS.enabled||' '||SS.minute||' '||SS.hour||' '||"
    "SS.day_of_month||' '||SS.day_of_week||' '||SS.month||' '||SS.purge_manual_snapshot,"
    "V.lv_name,S.name FROM snapshot_schedule SS INNER JOIN share S ON S.id=SS.share_id INNER "
    "JOIN _volume V ON V.id=S.volume_id";

int export_schedules(ksdb_handle *h, sqlite3 *db) {
    SqlTable rows;
    if (rows.query(h, db, KSDB_TAG, kScheduleQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT snapshot_schedule'\n");
        return KSDB_E_DB;
    }
    for (int r = 0; r < rows.rows(); ++r) {
        std::string path;
        if (share_conf_path(h, rows.str(r, 2), rows.str(r, 3), "snapshot", &path) != 0)
            return KSDB_E_FILE;
        const std::string line = std::string(rows.str(r, 1)) + "\n";
        if (int rc = put_managed_file(h, ksdb_file_spec{path.c_str(), 98, 98, 0644}, line))
            return rc;
    }
    return 0;
}

// ---- retention (management and 7x24 schedule files) -----------------------------

struct Retention {
    int enabled = 0;
    int retention_rule = 0;  // 0: unset
    std::optional<long> lifetime, number;
    int nonempty_snapshots = 1;
    int prev_versions = 0;
    std::string schedule;  // up to 168 characters "0"/"1"
};

void read_management(ksdb_handle *h, const std::string &path, Retention *out) {
    ConfFile conf(h, path);
    if (!conf.ok()) {
        KSDB_INFO(h, "Cannot load %s\n", path.c_str());
    } else {
        conf.lines([&](char *line) {
            std::string_view l(line);
            while (!l.empty() && l.back() == '\r') l.remove_suffix(1);
            if (l.empty() || l[0] == '[' || l[0] == '#') return true;
            const size_t eq = l.find(" = ");
            if (eq == std::string_view::npos) return true;
            const std::string key(l.substr(0, eq)), value(l.substr(eq + 3));
            const bool yes_or_1 = value == "yes" || value == "1";
            if (key == "enabled")
                out->enabled = yes_or_1 || value == "true";
            else if (key == "retention_rule")
                out->retention_rule = value == "number" ? 2 : 1;
            else if (key == "lifetime")
                out->lifetime = std::strtol(value.c_str(), nullptr, 10);
            else if (key == "number")
                out->number = std::strtol(value.c_str(), nullptr, 10);
            else if (key == "nonempty_snapshots")  // "true" does not count here
                out->nonempty_snapshots = yes_or_1;
            else if (key == "prev_versions")
                out->prev_versions = yes_or_1;
            return true;
        });
    }
    if (!out->retention_rule) out->retention_rule = 1;
    if (!out->lifetime) out->lifetime = 2592000;
    if (!out->number) out->number = 30;
}

// Up to seven lines read as a 64-byte line buffer reads them (a longer line
// goes on as the next); of each, 24 hours: "1" stays, anything else, the
// line's end and what lies past it, is "0".
void read_week(ksdb_handle *h, const std::string &path, Retention *out) {
    ConfFile conf(h, path);
    if (!conf.ok()) {
        KSDB_INFO(h, "Cannot load %s\n", path.c_str());
        return;
    }
    const std::string &text = conf.text();
    size_t pos = 0;
    for (int day = 0; day < 7 && pos < text.size(); ++day) {
        size_t end = pos;
        while (end < text.size() && end - pos < 63)
            if (text[end++] == '\n') break;
        for (size_t i = 0; i < 24; ++i)
            out->schedule += pos + i < end && text[pos + i] == '1' ? '1' : '0';
        pos = end;
    }
}

int import_retention(ksdb_handle *h, sqlite3 *db) {
    SqlTable shares;
    if (shares.query(h, db, KSDB_TAG, "SELECT name,volume_id FROM share") != SQLITE_OK)
        return KSDB_E_DB;
    auto failed = [&] {
        KSDB_ERR(h, "Failed DB query 'INSERT INTO snapshot_management'\n");
        return KSDB_E_DB;
    };
    for (int r = 0; r < shares.rows(); ++r) {
        Retention s;
        read_management(h, share_file(shares.at(r, 1), shares.str(r, 0),
                                      "custom_snapshot_management"), &s);
        read_week(h, share_file(shares.at(r, 1), shares.str(r, 0), "custom_snapshot_schedule"),
                  &s);
        if (ksdb_sql_exec_mprintf(
                h, db, nullptr, KSDB_TAG,
                "INSERT OR REPLACE INTO snapshot_management (share_id,enabled,retention_rule,"
                "lifetime,number,schedule,nonempty_snapshots,prev_versions) VALUES((SELECT S.id "
                "FROM share S WHERE S.name=%Q),%d,%d,%d,%d,%Q,%d,%d)",
                shares.str(r, 0), s.enabled, s.retention_rule, static_cast<int>(*s.lifetime),
                static_cast<int>(*s.number), s.schedule.c_str(), s.nonempty_snapshots,
                s.prev_versions) != SQLITE_OK)
            return failed();
    }
    Retention home;
    read_management(h, kHomeManagement, &home);
    read_week(h, kHomeSchedule, &home);
    if (ksdb_sql_exec_mprintf(
            h, db, nullptr, KSDB_TAG,
            "INSERT OR REPLACE INTO snapshot_management (share_id,enabled,retention_rule,lifetime,"
            "number,schedule,nonempty_snapshots) VALUES(0,%d,%d,%d,%d,%Q,%d)",
            home.enabled, home.retention_rule, static_cast<int>(*home.lifetime),
            static_cast<int>(*home.number), home.schedule.c_str(),
            home.nonempty_snapshots) != SQLITE_OK)
        return failed();
    return 0;
}

const char *yes_no(const char *stored) {
    return stored && std::strtol(stored, nullptr, 10) != 0 ? "yes" : "no";
}

// The management file of one row: enabled, retention_rule, lifetime, number,
// schedule, nonempty_snapshots and (shares only) prev_versions from `col`.
std::string management_text(const SqlTable &t, int r, int col, bool share) {
    const char *rule = t.at(r, col + 1);
    std::string out = strprintf("enabled = %s\n", yes_no(t.at(r, col)));
    out += strprintf("retention_rule = %s\n",
                     rule && std::strtol(rule, nullptr, 10) == 2 ? "number" : "lifetime");
    out += strprintf("lifetime = %s\n", t.str(r, col + 2));
    out += strprintf("number = %s\n", t.str(r, col + 3));
    out += strprintf("nonempty_snapshots = %s\n", yes_no(t.at(r, col + 5)));
    if (share) out += strprintf("prev_versions = %s\n", yes_no(t.at(r, col + 6)));
    return out;
}

// Seven lines of 24 hours, "1" or "."; a schedule of fewer than 168
// characters has no snapshot hour at all.
std::string week_text(const char *stored) {
    const std::string_view s = stored ? stored : "";
    std::string out;
    for (int i = 0; i < kHours; ++i) {
        out += s.size() >= kHours && s[i] == '1' ? '1' : '.';
        if (i % 24 == 23) out += '\n';
    }
    return out;
}

constexpr char kShareRetentionQuery[] =
    "SELECT V.lv_name,S.name,SM.enabled,SM.retention_rule,SM.lifetime,SM.number,SM.schedule,"
    "SM.nonempty_snapshots,SM.prev_versions FROM snapshot_management SM INNER JOIN share S ON "
    "S.id=SM.share_id INNER JOIN _volume V ON V.id=S.volume_id";
constexpr char kHomeRetentionQuery[] =
    "SELECT SM.enabled,SM.retention_rule,SM.lifetime,SM.number,SM.schedule,"
    "SM.nonempty_snapshots FROM snapshot_management SM WHERE share_id=0";

int query_retention(ksdb_handle *h, sqlite3 *db, SqlTable *t, const char *sql) {
    if (t->query(h, db, KSDB_TAG, sql) == SQLITE_OK) return 0;
    KSDB_ERR(h, "Failed DB Query for 'SELECT FROM snapshot_management'\n");
    return KSDB_E_DB;
}

int export_share_retention(ksdb_handle *h, sqlite3 *db) {
    SqlTable t;
    if (int rc = query_retention(h, db, &t, kShareRetentionQuery)) return rc;
    for (int r = 0; r < t.rows(); ++r) {
        std::string management, week;
        if (share_conf_path(h, t.str(r, 0), t.str(r, 1), "custom_snapshot_management",
                            &management) != 0 ||
            share_conf_path(h, t.str(r, 0), t.str(r, 1), "custom_snapshot_schedule", &week) != 0)
            return KSDB_E_FILE;
        if (int rc = put_managed_file(h, ksdb_file_spec{management.c_str(), 98, 98, 0644},
                                      management_text(t, r, 2, true)))
            return rc;
        if (int rc = put_managed_file(h, ksdb_file_spec{week.c_str(), 98, 98, 0644},
                                      week_text(t.at(r, 6))))
            return rc;
    }
    return 0;
}

int export_home_retention(ksdb_handle *h, sqlite3 *db) {
    SqlTable t;
    if (int rc = query_retention(h, db, &t, kHomeRetentionQuery)) return rc;
    if (t.rows() == 0) return 0;
    if (int rc = put_managed_file(h, kHomeManagement, management_text(t, 0, 0, false))) return rc;
    return put_managed_file(h, kHomeSchedule, week_text(t.at(0, 4)));
}

// Every value the export writes, checked before any file is written: the
// schedule fields are words of a blank-separated line, the retention
// numbers stay on their line, and share names become folder names.
int check_values(ksdb_handle *h, sqlite3 *db) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT S.name,SS.enabled,SS.minute,SS.hour,SS.day_of_month,SS.day_of_week,"
                "SS.month,SS.purge_manual_snapshot FROM snapshot_schedule SS INNER JOIN share S "
                "ON S.id=SS.share_id INNER JOIN _volume V ON V.id=S.volume_id") != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT snapshot_schedule'\n");
        return KSDB_E_DB;
    }
    static const char *const kScheduleColumns[] = {"enabled", "minute", "hour", "day_of_month",
                                                   "day_of_week", "month",
                                                   "purge_manual_snapshot"};
    for (int r = 0; r < t.rows(); ++r) {
        const char *share = t.str(r, 0);
        if (int rc = guard_value(h, share, rules::kPathComponent, {"share", "name", share}))
            return rc;
        for (int c = 0; c < 7; ++c)
            if (int rc = guard_value(h, t.at(r, c + 1), rules::kWord,
                                     {"snapshot_schedule", kScheduleColumns[c], share}))
                return rc;
    }
    if (int rc = query_retention(h, db, &t,
                                 "SELECT IFNULL(S.name,'(home folders)'),SM.lifetime,SM.number "
                                 "FROM snapshot_management SM LEFT JOIN share S ON "
                                 "S.id=SM.share_id WHERE SM.share_id=0 OR S.volume_id IN "
                                 "(SELECT id FROM _volume)"))
        return rc;
    for (int r = 0; r < t.rows(); ++r) {
        const char *share = t.str(r, 0);
        if (int rc = guard_value(h, share, rules::kPathComponent, {"share", "name", share}))
            return rc;
        if (int rc = guard_value(h, t.at(r, 1), rules::kLine,
                                 {"snapshot_management", "lifetime", share}))
            return rc;
        if (int rc = guard_value(h, t.at(r, 2), rules::kLine,
                                 {"snapshot_management", "number", share}))
            return rc;
    }
    return 0;
}

// ---- the scan of existing snapshots ---------------------------------------------

struct Found {
    std::string name;
    time_t created = 0;
};

time_t parse_time(const std::string &text) {
    struct tm tm {};
    const char *end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    if (!end) return 0;
    tm.tm_isdst = -1;
    const time_t t = mktime(&tm);
    return t < 0 ? 0 : t;
}

// The text of the element a line ends with ("...<date>TEXT</date>").
bool line_element(std::string_view line, std::string_view close, std::string *text) {
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r'))
        line.remove_suffix(1);
    if (!line.ends_with(close)) return false;
    line.remove_suffix(close.size());
    const size_t open = line.rfind('>');
    *text = unescape_xml(open == std::string_view::npos ? line : line.substr(open + 1));
    return true;
}

// Snapshots kept by the snapshot manager: "<share>/.snapshots/<n>/info.xml"
// gives the time (the line ending "</date>") and the name ("</value>").
void managed_snapshots(ksdb_handle *h, const std::string &dir, std::vector<Found> *out) {
    for (const std::string &entry : fs::list_dir(h, dir)) {
        Found f;
        std::string date;
        ConfFile info(h, dir + "/" + entry + "/info.xml");
        if (info.ok()) {
            info.lines([&](char *line) {
                line_element(line, "</date>", &date);
                line_element(line, "</value>", &f.name);
                return true;
            });
        }
        f.created = date.empty() ? 0 : parse_time(date);
        out->push_back(std::move(f));
    }
}

// Snapshots kept beside the share's settings: "._share/<share>/.snapshot/<name>",
// each a subvolume whose creation time the file-system tool shows.
void settings_snapshots(ksdb_handle *h, const std::string &dir, std::vector<Found> *out) {
    for (const std::string &entry : fs::list_dir(h, dir)) {
        const std::string path = fs::real_path(h, dir + "/" + entry);
        const char *argv[] = {"btrfs", "subvolume", "show", path.c_str(), nullptr};
        char text[4096];
        Found f{entry, 0};
        if (exec_cmd(argv, text, sizeof text) == 0) {
            for_each_line(text, [&](char *line) {
                if (!std::strstr(line, "Creation")) return true;
                char day[32], clock[32];
                if (std::sscanf(line, "%*s %*s %31s %31s", day, clock) == 2)
                    f.created = parse_time(std::string(day) + " " + clock);
                return false;
            });
        }
        out->push_back(std::move(f));
    }
}

int snapshot_type(const std::string &name) {
    static const char *const kPrefixes[] = {"c_", "m_", "r_", "s_"};
    for (int i = 0; i < 4; ++i)
        if (name.compare(0, 2, kPrefixes[i]) == 0) return i + 1;
    return 0;
}

struct Scan {
    const char *volume_filter;
    const char *share_filter;
    bool ended = false;  // a snapshot without a name or a time ends the scan
};

// The share's id when the share exists and lies on the volume; 0 when it
// does not (logged); -1 when a query failed.
long checked_share(ksdb_handle *h, sqlite3 *db, const char *volume, const char *share) {
    std::optional<std::string> id, vol, on;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &id, "SELECT id FROM share WHERE name=%Q", share))
        return -1;
    if (!id) {
        KSDB_ERR(h, "Specified ShareName(%s) is not exist.\n", share);
        return 0;
    }
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &vol, "SELECT id FROM _volume WHERE lv_name=%Q",
                   volume))
        return -1;
    if (!vol) {
        KSDB_ERR(h, "Specified VolumeName(%s) is not exist.\n", volume);
        return 0;
    }
    const long share_id = std::strtol(id->c_str(), nullptr, 10);
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &on, "SELECT 1 FROM share WHERE id=%d AND volume_id=%Q",
                   static_cast<int>(share_id), volume)) {
        KSDB_ERR(h, "Error in Share DB query.\n");
        return -1;
    }
    if (!on) {
        KSDB_ERR(h, "Specified ShareName(%s) is not on VolumeName(%s).\n", share, volume);
        return 0;
    }
    return share_id;
}

constexpr int kScanEnded = -2;  // a private result of the callback: stop, then succeed

int scan_share(ksdb_handle *h, sqlite3 *db, const char *volume, const char *share, void *arg) {
    Scan &scan = *static_cast<Scan *>(arg);
    if (scan.volume_filter && std::strcmp(scan.volume_filter, volume) != 0) return 0;
    if (scan.share_filter && std::strcmp(scan.share_filter, share) != 0) return 0;
    const std::string meta = share_conf_dir(volume, share);
    if (!fs::is_dir(h, meta)) return 0;

    std::vector<Found> found;
    managed_snapshots(h, "/" + std::string(volume) + "/" + share + "/.snapshots", &found);
    settings_snapshots(h, meta + "/.snapshot", &found);
    long share_id = 0;
    for (const Found &f : found) {
        KSDB_DEBUG(h, "In _ksdb_snapshots_import_zfs: volume_name[%s] share_name[%s], "
                      "snapshot_name[%s]\n", volume, share, f.name.c_str());
        if (f.name.empty() || f.created == 0) {
            KSDB_ERR(h, "In _ksdb_snapshots_import_zfs: volume_name[%s] share_name[%s], "
                        "snapshot_name[%s], time[%ld]\n",
                     volume, share, f.name.c_str(), static_cast<long>(f.created));
            scan.ended = true;
            return kScanEnded;
        }
        if (f.name[0] == '.') continue;
        if (share_id == 0) {
            share_id = checked_share(h, db, volume, share);
            if (share_id < 0) return KSDB_E_DB;
            if (share_id == 0) return 0;
        }
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "INSERT OR REPLACE INTO `$snapshot`(zfs_name,name,type,"
                                  "created_on)VALUES((SELECT SH.zfs_name FROM share SH WHERE "
                                  "SH.id=%d),%Q,%d,%d)",
                                  static_cast<int>(share_id), f.name.c_str(),
                                  snapshot_type(f.name), static_cast<int>(f.created)) != SQLITE_OK) {
            KSDB_ERR(h, "Probably share_id=%d is invalid.\n", static_cast<int>(share_id));
            KSDB_ERR(h, "Failed DB Query for 'INSERT INTO $snapshot'. %s.\n", sqlite3_errmsg(db));
            return KSDB_E_DB;
        }
    }
    return 0;
}

int scan_snapshots(ksdb_handle *h, sqlite3 *db, const char *volume, const char *share) {
    if (share) {
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "DELETE FROM `$snapshot` WHERE zfs_name=(SELECT S.zfs_name FROM "
                                  "share S WHERE S.name=%Q)",
                                  share) != SQLITE_OK) {
            KSDB_ERR(h, "Cannot delete from snapshot table. \n");
            return KSDB_E_DB;
        }
        KSDB_DEBUG(h, "\nDeleted $snapshot entries for share [%s]", share);
    }
    Scan scan{volume, share};
    int rc = ksdb_foreach_share_subvolume(h, db, scan_share, &scan, 1);
    return rc == kScanEnded ? 0 : rc;
}

}  // namespace
}  // namespace ksdb::snapshot

KSDB_STEP(ksdb_snapshot_import) {
    using namespace ksdb::snapshot;
    if (int rc = import_schedules(h, db)) return rc;
    return import_retention(h, db);
}

KSDB_STEP(ksdb_snapshot_export) {
    using namespace ksdb::snapshot;
    if (int rc = check_values(h, db)) return rc;
    if (int rc = ksdb::logged(h, KSDB_TAG, "_ksdb_snapshot_schedule_export",
                              [&] { return export_schedules(h, db); }))
        return rc;
    if (int rc = ksdb::logged(h, KSDB_TAG, "_ksdb_snapshot_management_export",
                              [&] { return export_share_retention(h, db); }))
        return rc;
    return ksdb::logged(h, KSDB_TAG, "_ksdb_hf_snapshot_management_export",
                        [&] { return export_home_retention(h, db); });
}

namespace ksdb {

int latest_snapshot(ksdb_handle *h, sqlite3 *db, const char *zfs_name, std::string *name) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG,
                "SELECT name FROM `$snapshot` WHERE created_on=(SELECT MAX(created_on) FROM "
                "`$snapshot` WHERE zfs_name=%Q)",
                zfs_name) != SQLITE_OK) {
        KSDB_ERR(h, "ksdb_getLatestSnapshotName: Failed DB Query for 'SELECT FROM $snapshot'. "
                    "%s\n", sqlite3_errmsg(db));
        return KSDB_E_DB;
    }
    if (t.rows() == 0 || !t.at(0, 0)) {
        KSDB_ERR(h, "ksdb_getLatestSnapshotName: No dataset found in $snapshot.\n");
        return KSDB_E_STEP;
    }
    *name = t.at(0, 0);
    return 0;
}

bool latest_snapshot_name(ksdb_handle *h, sqlite3 *db, const char *zfs_name, std::string *name) {
    return latest_snapshot(h, db, zfs_name, name) == 0;
}

}  // namespace ksdb

extern "C" {

int ksdb_snapshots_import_zfs(ksdb_handle *h, sqlite3 *db, const char *volume, const char *share) {
    if (!h || !db) return KSDB_E_INVAL;
    return ksdb::logged(h, KSDB_TAG, "ksdb_snapshots_import_zfs", [&]() -> int {
        // Inside the caller's transaction when it holds one; else in one of
        // its own, so that the rows of a scan come in at once.
        if (!sqlite3_get_autocommit(db)) return ksdb::snapshot::scan_snapshots(h, db, volume, share);
        ksdb::Transaction tx(h, db, KSDB_TAG);
        if (!tx.ok()) return KSDB_E_DB;
        if (int rc = ksdb::snapshot::scan_snapshots(h, db, volume, share)) return rc;
        return tx.commit() == SQLITE_OK ? 0 : KSDB_E_DB;
    });
}

int ksdb_getSnapshotUsedInBytes(ksdb_handle *h, sqlite3 *db, const char *share_path,
                                const char *snapshot_name, uint64_t *out) {
    if (!h || !db || !share_path || !snapshot_name || !out) return KSDB_E_INVAL;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_getSnapshotUsedInBytes", [&]() -> int {
        const std::string share = ksdb::fs::real_path(h, share_path);
        char *found = nullptr;
        if (snapshot_get_path(share.c_str(), snapshot_name, &found) != 0 || !found)
            return SQLITE_CORRUPT;  // 11: no such snapshot
        std::unique_ptr<char, void (*)(void *)> owner(found, std::free);
        KSDB_DEBUG(h, "share_path = %s, snapshot_name = %s, snapshot_path = %s\n", share_path,
                   snapshot_name, found);
        // The platform answers below the debug root; the attribute reader
        // takes the live path.
        std::string_view live(found);
        const std::string root = ksdb::fs::real_path(h, "");
        if (!root.empty() && live.starts_with(root)) live.remove_prefix(root.size());
        return ksdb_get_subvolume_used_in_bytes(h, db, std::string(live).c_str(), out);
    });
}

int ksdb_getLatestSnapshotName(ksdb_handle *h, sqlite3 *db, const char *zfs_name, char **out) {
    if (!h || !db || !zfs_name || !out) return KSDB_E_INVAL;
    *out = nullptr;
    return ksdb::boundary(h, KSDB_TAG, "ksdb_getLatestSnapshotName", [&]() -> int {
        std::string name;
        int rc = ksdb::latest_snapshot(h, db, zfs_name, &name);
        if (rc == 0) *out = ksdb::pool_strdup(h, name.c_str());
        return rc;
    });
}

}  // extern "C"
