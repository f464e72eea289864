// Volume maintenance schedules: each volume keeps its jobs (an action run at
// cron times) in "/<volume>/.volume_schedule.conf" (XML), so that they
// travel with its disks, and the table `volume_schedule` holds the jobs of
// every volume; the export also writes the cron file that starts them.
#define KSDB_MODULE "ksdb_volume_schedule"
#include "core/ksdb_area.h"
#include "core/ksdb_areas.h"
#include "platform/platform.h"
#include "util/ksdb_job_files.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ksdb::volume_schedule {
namespace {

constexpr char kCronFile[] = "/etc/cron.d/quillfold-volumeschedule";
constexpr char kProgram[] = "/usr/bin/volume_schedule";

std::string volume_file(const char *volume) {
    return "/" + std::string(volume) + "/.volume_schedule.conf";
}

// The volumes of the platform's scan, released on scope exit.  A failed
// scan is an empty list.
class Volumes {
  public:
    explicit Volumes(ksdb_handle *h) { ok_ = volume_scan(h->debug_root, &list_) == 0; }
    ~Volumes() {
        if (ok_) free_volume(&list_);
    }
    Volumes(const Volumes &) = delete;
    Volumes &operator=(const Volumes &) = delete;
    int count() const { return ok_ ? list_.count : 0; }
    const ksdb_volume_entry &operator[](int i) const { return list_.volumes[i]; }

  private:
    ksdb_volume_list list_{};
    bool ok_ = false;
};

// ---- import ----------------------------------------------------------------------

// The text children of a job, in the order of the insert statement after
// the three numbers.
constexpr const char *kTexts[] = {"volume_id", "minute", "hour", "dayofmonth", "month",
                                  "dayofweek"};
constexpr const char *kNumbers[] = {"job_id", "enabled", "action"};

int import_job(ksdb_handle *h, sqlite3 *db, xmlDocPtr doc, xmlNodePtr job) {
    int numbers[3] = {-1, -1, -1};  // an element without text gives -1
    std::optional<std::string> texts[6];
    for_each_element(job, [&](xmlNodePtr e) {
        for (int i = 0; i < 3; ++i) {
            if (element_is(e, kNumbers[i])) {
                auto text = xml_element_text(doc, e);
                numbers[i] = text ? static_cast<int>(std::strtol(text->c_str(), nullptr, 10)) : -1;
                return;
            }
        }
        for (int i = 0; i < 6; ++i) {
            if (element_is(e, kTexts[i])) {
                texts[i] = xml_element_text(doc, e);
                return;
            }
        }
        KSDB_ERR(h, "Unknown element <%s> found\n", reinterpret_cast<const char *>(e->name));
    });
    auto t = [&](int i) { return texts[i] ? texts[i]->c_str() : nullptr; };
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG,
                              "INSERT OR REPLACE INTO `volume_schedule`(job_id,volume_id,enabled,"
                              "action,minute,hour,dayofmonth,month,dayofweek) "
                              "VALUES(%d,%Q,%d,%d,%Q,%Q,%Q,%Q,%Q)",
                              numbers[0], t(0), numbers[1], numbers[2], t(1), t(2), t(3), t(4),
                              t(5)) != SQLITE_OK) {
        KSDB_ERR(h, "Error in SQL Exec.\n");
        return KSDB_E_DB;
    }
    return 0;
}

int import_volume(ksdb_handle *h, sqlite3 *db, const char *volume) {
    const std::string path = volume_file(volume);
    if (!fs::readable(h, path)) return 0;
    int status = 0;
    XmlDoc doc = read_xml_file(h, path, &status);
    if (!doc) return status;
    int rc = 0;
    for_each_element(xmlDocGetRootElement(doc.get()), [&](xmlNodePtr e) {
        if (!rc && element_is(e, "Volume_Schedule")) rc = import_job(h, db, doc.get(), e);
    });
    return rc;
}

int import_schedules(ksdb_handle *h, sqlite3 *db) {
    Volumes volumes(h);
    if (volumes.count() == 0) return 0;
    if (ksdb_sql_exec(h, db, nullptr, KSDB_TAG, "DELETE FROM `volume_schedule`") != SQLITE_OK) {
        KSDB_ERR(h, "Failed to DELETE volume_schedule\n");
        return KSDB_E_DB;
    }
    for (int i = 0; i < volumes.count(); ++i)
        if (int rc = import_volume(h, db, volumes[i].name)) return rc;
    return 0;
}

// ---- export ----------------------------------------------------------------------

constexpr char kJobQuery[] =
    "SELECT job_id,enabled,action,volume_id,minute,hour,dayofmonth,month,dayofweek FROM "
    "volume_schedule";
enum { kJobId, kEnabled, kAction, kVolumeId, kMinute };  // the five cron fields from kMinute

int number(const char *text) { return text ? static_cast<int>(std::strtol(text, nullptr, 10)) : 0; }

// Volume names compare without regard to case, as the column does.
std::string volume_key(std::string_view name) {
    std::string key(name);
    for (char &c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return key;
}

// Every value the export writes, checked before any file is written: each
// text goes into an XML element, and the times of an enabled job become the
// fields of its cron line.
int check_values(ksdb_handle *h, const SqlTable &jobs) {
    for (int r = 0; r < jobs.rows(); ++r) {
        const std::string job = jobs.str(r, kJobId);
        for (int c = kVolumeId; c < kVolumeId + 6; ++c)
            if (int rc = guard_xml_text(h, jobs.at(r, c), {"volume_schedule", kTexts[c - kVolumeId],
                                                           job}))
                return rc;
        if (number(jobs.at(r, kEnabled)) == 0) continue;
        // The cron line's order: minute, hour, day of month, month, day of week.
        static const CronField kFields[] = {CronField::kMinute, CronField::kHour,
                                            CronField::kDayOfMonth, CronField::kMonth,
                                            CronField::kDayOfWeek};
        for (int f = 0; f < 5; ++f)
            if (int rc = guard_cron_field(h, jobs.at(r, kMinute + f), kFields[f],
                                          {"volume_schedule", kTexts[f + 1], job}))
                return rc;
    }
    return 0;
}

std::string volume_text(const SqlTable &jobs, const std::vector<int> &rows) {
    std::string out = "<Volume_Schedule_Collection>\n";
    for (int r : rows) {
        out += "  <Volume_Schedule>\n";
        out += strprintf("    <job_id>%d</job_id>\n", number(jobs.at(r, kJobId)));
        out += strprintf("    <enabled>%d</enabled>\n", number(jobs.at(r, kEnabled)));
        out += strprintf("    <action>%d</action>\n", number(jobs.at(r, kAction)));
        for (int c = 0; c < 6; ++c) append_xml_element(out, "    ", kTexts[c], jobs.at(r, kVolumeId + c));
        out += "  </Volume_Schedule>\n";
    }
    out += "</Volume_Schedule_Collection>\n";
    return out;
}

std::string cron_text(const SqlTable &jobs) {
    std::string out;
    for (int r = 0; r < jobs.rows(); ++r) {
        if (number(jobs.at(r, kEnabled)) == 0) continue;
        out += strprintf("%s %s %s %s %s root %s %d &> /dev/null\n", jobs.str(r, kMinute),
                         jobs.str(r, kMinute + 1), jobs.str(r, kMinute + 2),
                         jobs.str(r, kMinute + 3), jobs.str(r, kMinute + 4), kProgram,
                         number(jobs.at(r, kJobId)));
    }
    return out;
}

int export_schedules(ksdb_handle *h, sqlite3 *db) {
    Volumes volumes(h);
    if (volumes.count() == 0) return 0;
    SqlTable jobs;
    if (jobs.query(h, db, KSDB_TAG, kJobQuery) != SQLITE_OK) {
        KSDB_ERR(h, "Failed DB Query for 'SELECT FROM volume_schedule'\n");
        return KSDB_E_DB;
    }
    if (int rc = check_values(h, jobs)) return rc;
    // One pass over the jobs: each volume's rows, in table order.
    std::map<std::string, std::vector<int>> by_volume;
    for (int r = 0; r < jobs.rows(); ++r) by_volume[volume_key(jobs.str(r, kVolumeId))].push_back(r);

    for (int i = 0; i < volumes.count(); ++i) {
        if (volumes[i].flags & KSDB_VOLUME_IGNORED) continue;
        const std::string path = volume_file(volumes[i].name);
        auto it = by_volume.find(volume_key(volumes[i].name));
        const int rc = it == by_volume.end()
                           ? remove_managed_file(h, path.c_str())
                           : put_managed_file(h, ksdb_file_spec{path.c_str(), 98, 98, 0644},
                                              volume_text(jobs, it->second));
        if (rc) return rc;
    }
    if (jobs.rows() == 0) return remove_managed_file(h, kCronFile);
    return put_managed_file(h, kCronFile, cron_text(jobs));
}

}  // namespace
}  // namespace ksdb::volume_schedule

KSDB_STEP(ksdb_volume_schedule_import) { return ksdb::volume_schedule::import_schedules(h, db); }

KSDB_STEP(ksdb_volume_schedule_export) { return ksdb::volume_schedule::export_schedules(h, db); }
