// Backup jobs: the job file /etc/quillfold/backup_jobs.conf (XML) both ways
// with the jobs the front-panel button runs, the fixed list of protocols a
// backup can use, and what the export derives from the jobs: the cron file
// that starts them, the wake-on-LAN address list and the button script.
#define KSDB_MODULE "ksdb_backup"
#include "core/ksdb_area.h"
#include "core/ksdb_areas.h"
#include "util/ksdb_job_files.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

namespace ksdb::backup {
namespace {

constexpr char kJobFile[] = "/etc/quillfold/backup_jobs.conf";
constexpr char kCronFile[] = "/etc/cron.d/quillfold-backup";
constexpr char kWolFile[] = "/etc/quillfold/backup_wol_addr";
constexpr char kButtonFile[] = "/etc/quillfold/backup_button_jobs";
constexpr char kProgram[] = "/quillfold/bin/qfbackup";

// The columns a job element may set, in the order of the import statement,
// and whether each is a number.
struct Column {
    const char *name;
    bool number;
};
constexpr Column kColumns[] = {
    {"name", false},
    {"enabled", true},
    {"sch_every", true},
    {"sch_start", true},
    {"sch_end", true},
    {"sch_dow", true},
    {"src_type", false},
    {"src_share_proto", false},
    {"src_path", false},
    {"src_login", false},
    {"src_password", false},
    {"src_port", true},
    {"src_eject", true},
    {"dst_type", false},
    {"dst_share_proto", false},
    {"dst_path", false},
    {"dst_login", false},
    {"dst_password", false},
    {"dst_port", true},
    {"dst_eject", true},
    {"opt_full_backup_freq", false},
    {"opt_remove_previous_backup", true},
    {"opt_chown_to_share_owner", true},
    {"opt_rsync_options", true},
    {"opt_email_this_to_alert_email", true},
    {"opt_rsync_exclude", false},
    {"opt_misc_option", true},
    {"wol_addr", false},
};
constexpr int kColumnCount = sizeof kColumns / sizeof kColumns[0];

// The volumes of the source and destination shares are worked out on
// export; the import passes over them.
bool computed(const char *name) {
    return std::strcmp(name, "src_share_vol") == 0 || std::strcmp(name, "dst_share_vol") == 0;
}

// The protocols a backup can use and whether the share is only read.
struct Protocol {
    const char *proto;
    int readonly;
};
constexpr Protocol kProtocols[] = {{"cifs", 0}, {"cifs-ab", 1}, {"nfs", 0},
                                   {"ftp", 0},  {"rsync", 0},   {"rsync+ssh", 0}};

// ---- import ----------------------------------------------------------------------

int to_int(const std::optional<std::string> &text) {
    return text ? static_cast<int>(std::strtol(text->c_str(), nullptr, 10)) : 0;
}

int insert_job(ksdb_handle *h, sqlite3 *db, const std::optional<std::string> &id,
               const std::optional<std::string> (&v)[kColumnCount]) {
    auto n = [&](int i) { return to_int(v[i]); };
    auto t = [&](int i) { return v[i] ? v[i]->c_str() : nullptr; };
    if (ksdb_sql_exec_mprintf(
            h, db, nullptr, KSDB_TAG,
            "INSERT OR REPLACE INTO `backup`(id,name,enabled,sch_every,sch_start,sch_end,sch_dow,"
            "src_type,src_share_proto,src_path,src_login,src_password,src_port,src_eject,"
            "dst_type,dst_share_proto,dst_path,dst_login,dst_password,dst_port,dst_eject,"
            "opt_full_backup_freq,opt_remove_previous_backup,opt_chown_to_share_owner,"
            "opt_rsync_options,opt_email_this_to_alert_email,opt_rsync_exclude,opt_misc_option,"
            "wol_addr) VALUES(%d,%Q,%d,%d,%d,%d,%d,%Q,%Q,%Q,%Q,%Q,%d,%d,%Q,%Q,%Q,%Q,%Q,%d,%d,%Q,"
            "%d,%d,%d,%d,%Q,%d,%Q)",
            to_int(id), t(0), n(1), n(2), n(3), n(4), n(5), t(6), t(7), t(8), t(9), t(10), n(11),
            n(12), t(13), t(14), t(15), t(16), t(17), n(18), n(19), t(20), n(21), n(22), n(23),
            n(24), t(25), n(26), t(27)) != SQLITE_OK) {
        KSDB_ERR(h, "Error in SQL Exec.\n");
        return KSDB_E_DB;
    }
    return 0;
}

int import_job(ksdb_handle *h, sqlite3 *db, xmlDocPtr doc, xmlNodePtr job) {
    std::optional<std::string> id, values[kColumnCount];
    for_each_element(job, [&](xmlNodePtr e) {
        const char *name = reinterpret_cast<const char *>(e->name);
        if (std::strcmp(name, "job_id") == 0) {
            id = xml_element_text(doc, e);
            return;
        }
        for (int i = 0; i < kColumnCount; ++i) {
            if (std::strcmp(name, kColumns[i].name) == 0) {
                values[i] = xml_element_text(doc, e);
                return;
            }
        }
        if (!computed(name)) KSDB_ERR(h, "Unknown element <%s> found\n", name);
    });
    return insert_job(h, db, id, values);
}

int import_button_jobs(ksdb_handle *h, sqlite3 *db, xmlDocPtr doc, xmlNodePtr list) {
    int rc = 0;
    for_each_element(list, [&](xmlNodePtr e) {
        if (rc || !element_is(e, "backupButtonJob")) return;
        XmlStr order(xmlGetProp(e, reinterpret_cast<const xmlChar *>("order")));
        const int job = to_int(xml_element_text(doc, e));
        const int at = order ? static_cast<int>(std::strtol(order.get(), nullptr, 10)) : 0;
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "INSERT OR REPLACE INTO `backup_button_jobs`(`order`,`backup_id`) "
                                  "VALUES(%d,%d)",
                                  at, job) != SQLITE_OK) {
            KSDB_ERR(h, "Error in SQL Exec.\n");
            rc = KSDB_E_DB;
        }
    });
    return rc;
}

int import_job_file(ksdb_handle *h, sqlite3 *db) {
    if (ksdb_sql_exec(h, db, nullptr, KSDB_TAG, "DELETE FROM `backup`") != SQLITE_OK) {
        KSDB_ERR(h, "Failed to DELETE _lang_supported,_dictionary\n");
        return KSDB_E_DB;
    }
    if (!fs::readable(h, kJobFile)) return 0;
    int status = 0;
    XmlDoc doc = read_xml_file(h, kJobFile, &status);
    if (!doc) return status;
    int rc = 0;
    for_each_element(xmlDocGetRootElement(doc.get()), [&](xmlNodePtr e) {
        if (rc) return;
        if (element_is(e, "backupJob"))
            rc = import_job(h, db, doc.get(), e);
        else if (element_is(e, "backupButtonJobs"))
            rc = import_button_jobs(h, db, doc.get(), e);
    });
    return rc;
}

int import_protocols(ksdb_handle *h, sqlite3 *db) {
    for (const Protocol &p : kProtocols) {
        if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                                  "REPLACE INTO backup_protocol (proto,readonly) VALUES(%Q,%d)",
                                  p.proto, p.readonly) != SQLITE_OK) {
            KSDB_ERR(h, "Error in SQL query (REPLACE backup_protocol)\n");
            return KSDB_E_DB;
        }
    }
    return 0;
}

// ---- export ----------------------------------------------------------------------

constexpr char kJobQuery[] =
    "SELECT B.id,B.name,B.enabled,B.sch_every,B.sch_start,B.sch_end,B.sch_dow,B.src_type,"
    "B.src_share_proto,CASE B.src_type WHEN 'share' THEN (SELECT S.volume_id FROM share S WHERE "
    "B.src_share_proto=S.name) WHEN 'timemachine' THEN (SELECT A.home_volume_id FROM "
    "account_default A LIMIT 1) WHEN 'iscsi' THEN (SELECT S.volume_id FROM share S WHERE "
    "B.src_share_proto=S.name) ELSE '' END AS src_share_vol,B.src_path,B.src_login,"
    "B.src_password,B.src_port,B.src_eject,B.dst_type,B.dst_share_proto,CASE B.dst_type WHEN "
    "'share' THEN (SELECT S.volume_id FROM share S WHERE B.dst_share_proto=S.name) ELSE '' END AS "
    "dst_share_vol,B.dst_path,B.dst_login,B.dst_password,B.dst_port,B.dst_eject,"
    "B.opt_full_backup_freq,B.opt_remove_previous_backup,B.opt_chown_to_share_owner,"
    "B.opt_rsync_options,B.opt_email_this_to_alert_email,B.opt_rsync_exclude,B.opt_misc_option,"
    "B.wol_addr FROM backup B";

// The element of each column of kJobQuery after the id.
constexpr const char *kElements[] = {
    "name", "enabled", "sch_every", "sch_start", "sch_end", "sch_dow", "src_type",
    "src_share_proto", "src_share_vol", "src_path", "src_login", "src_password", "src_port",
    "src_eject", "dst_type", "dst_share_proto", "dst_share_vol", "dst_path", "dst_login",
    "dst_password", "dst_port", "dst_eject", "opt_full_backup_freq", "opt_remove_previous_backup",
    "opt_chown_to_share_owner", "opt_rsync_options", "opt_email_this_to_alert_email",
    "opt_rsync_exclude", "opt_misc_option", "wol_addr"};
constexpr int kElementCount = sizeof kElements / sizeof kElements[0];

constexpr char kScheduleQuery[] =
    "SELECT B.id,B.name,B.enabled,B.sch_every,B.sch_start,B.sch_end,B.sch_dow,B.wol_addr FROM "
    "backup B";
enum { kId, kName, kEnabled, kEvery, kStart, kEnd, kDow, kWol };

int id_of(const char *text) { return text ? static_cast<int>(std::strtol(text, nullptr, 10)) : 0; }

// How a refusal names a job: by its name, or by its number when it has none.
std::string job_label(const char *name, const char *id) {
    return name && *name ? std::string(name) : strprintf("%03d", id_of(id));
}

// A whole number of the stored text; nullopt for anything else.
std::optional<long> whole_number(const char *text) {
    if (!text || !*text) return std::nullopt;
    char *end = nullptr;
    errno = 0;
    const long v = std::strtol(text, &end, 10);
    if (*end || errno) return std::nullopt;
    return v;
}

// Every value the export writes, checked before any file is written.
int check_values(ksdb_handle *h, const SqlTable &jobs, const SqlTable &schedule) {
    for (int r = 0; r < jobs.rows(); ++r) {
        const std::string job = job_label(jobs.at(r, 1), jobs.at(r, 0));
        for (int c = 0; c < kElementCount; ++c)
            if (int rc = guard_xml_text(h, jobs.at(r, c + 1), {"backup", kElements[c], job}))
                return rc;
    }
    for (int r = 0; r < schedule.rows(); ++r) {
        const std::string job = job_label(schedule.at(r, kName), schedule.at(r, kId));
        if (int rc = guard_value(h, schedule.at(r, kWol), rules::kLine, {"backup", "wol_addr", job}))
            return rc;
        if (id_of(schedule.at(r, kEnabled)) == 0) continue;
        // The hours of an enabled job become the hour field "start-end/every".
        struct Bound {
            int column;
            const char *name;
            long low, high;
            const char *why;
        };
        static const Bound kBounds[] = {
            {kStart, "sch_start", 0, 23, "an hour outside 0-23"},
            {kEnd, "sch_end", 0, 23, "an hour outside 0-23"},
            {kEvery, "sch_every", 1, 24, "an interval outside 1-24 hours"},
        };
        for (const Bound &b : kBounds) {
            auto v = whole_number(schedule.at(r, b.column));
            if (!v || *v < b.low || *v > b.high)
                return refuse_value(h, b.why, "the hour field of a cron line",
                                    {"backup", b.name, job});
        }
    }
    return 0;
}

std::string job_file_text(ksdb_handle *h, sqlite3 *db, const SqlTable &jobs, int *rc) {
    std::string out = "<backupJobs>\n";
    for (int r = 0; r < jobs.rows(); ++r) {
        out += "  <backupJob>\n";
        out += strprintf("    <job_id>%03d</job_id>\n", id_of(jobs.at(r, 0)));
        for (int c = 0; c < kElementCount; ++c)
            append_xml_element(out, "    ", kElements[c], jobs.at(r, c + 1));
        out += "  </backupJob>\n";
    }
    out += "  <backupButtonJobs>\n";
    SqlTable buttons;
    if (buttons.query(h, db, KSDB_TAG,
                      "SELECT J.`order`,J.backup_id FROM backup_button_jobs J") != SQLITE_OK) {
        *rc = KSDB_E_DB;
        return out;
    }
    for (int r = 0; r < buttons.rows(); ++r)
        out += strprintf("    <backupButtonJob order=\"%d\">%03d</backupButtonJob>\n",
                         id_of(buttons.at(r, 0)), id_of(buttons.at(r, 1)));
    out += "  </backupButtonJobs>\n";
    out += "</backupJobs>\n";
    return out;
}

// One cron line per enabled job, at five past each hour of its window.  A
// job without any day would get the day field "-", which cron refuses (and
// with it every line of the file): such a line is written as a comment.
std::string cron_text(ksdb_handle *h, const SqlTable &schedule) {
    std::string out;
    for (int r = 0; r < schedule.rows(); ++r) {
        if (id_of(schedule.at(r, kEnabled)) == 0) continue;
        std::string days = day_names(h, id_of(schedule.at(r, kDow)));
        if (days.empty()) out += '#';
        out += strprintf("%d %02d-%02d/%d * * %s root %s %03d &> /dev/null\n", 5,
                         id_of(schedule.at(r, kStart)), id_of(schedule.at(r, kEnd)),
                         id_of(schedule.at(r, kEvery)), days.empty() ? "-" : days.c_str(),
                         kProgram, id_of(schedule.at(r, kId)));
    }
    return out;
}

std::string wol_text(const SqlTable &schedule) {
    std::string out;
    for (int r = 0; r < schedule.rows(); ++r)
        if (*schedule.str(r, kWol))
            out += strprintf("%03d,%s\n", id_of(schedule.at(r, kId)), schedule.str(r, kWol));
    return out;
}

int export_jobs(ksdb_handle *h, sqlite3 *db) {
    SqlTable jobs, schedule;
    if (jobs.query(h, db, KSDB_TAG, kJobQuery) != SQLITE_OK ||
        schedule.query(h, db, KSDB_TAG, kScheduleQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT FROM backup'\n");
        return KSDB_E_DB;
    }
    if (int rc = check_values(h, jobs, schedule)) return rc;
    int rc = 0;
    const std::string jobs_text = job_file_text(h, db, jobs, &rc);
    if (rc) return rc;

    rc = jobs.rows() > 0 ? put_managed_file(h, kJobFile, jobs_text)
                         : remove_managed_file(h, kJobFile);
    if (rc) return rc;
    if (schedule.rows() == 0) {
        if (int rc2 = remove_managed_file(h, kCronFile)) return rc2;
    } else {
        if (int rc2 = put_managed_file(h, kCronFile, cron_text(h, schedule))) return rc2;
        if (int rc2 = put_managed_file(h, kWolFile, wol_text(schedule))) return rc2;
    }
    // The button script is put in place and removed again once it stood
    // there: the button's program is started with "-b" by its own means.
    if (int rc2 = put_managed_file(h, kButtonFile, strprintf("#!/bin/sh\n%s -b\n", kProgram)))
        return rc2;
    fs::remove(h, kButtonFile);
    return 0;
}

}  // namespace
}  // namespace ksdb::backup

KSDB_STEP(ksdb_backup_import) {
    if (int rc = ksdb::backup::import_job_file(h, db)) return rc;
    return ksdb::backup::import_protocols(h, db);
}

// Every failure is reported as 1, except a refused value (4).
KSDB_STEP(ksdb_backup_export) {
    const int rc = ksdb::backup::export_jobs(h, db);
    return rc == 0 || rc == KSDB_E_INVAL ? rc : KSDB_E_STEP;
}
