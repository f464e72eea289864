// Backup jobs, volume schedules and snapshot settings beyond their case folders.
#define KSDB_MODULE "test_job_files"
#include "util/ksdb_job_files.h"

#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <cstring>
#include <sstream>

using namespace ksdb_test;

namespace {

class JobFilesTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024)");
    }
};

}  // namespace

// Guards: a field the check lets through that cron refuses, or the reverse.
TEST(CronFieldTest, AgreesWithCronsOwnParser) {
    if (!have_program("crontab")) GTEST_SKIP() << "cron's crontab is not installed";
    TempDir tmp;
    const auto rows = lines(read_file(KSDB_TEST_DATA_DIR "/cron-field-texts"));
    ASSERT_EQ(rows.size(), 7u) << "the field texts were not read";
    for (const std::string &row : rows) {
        std::istringstream in(row);
        int field = -1;
        if (row.rfind('#', 0) == 0 || !(in >> field)) continue;
        for (std::string text; in >> text;) {
            std::vector<std::string> line = {"0", "0", "1", "1", "0"};
            line[field] = text;
            write_file(tmp / "tab", line[0] + " " + line[1] + " " + line[2] + " " + line[3] + " " + line[4] +
                                        " /bin/true\n");
            const int st = std::system(("crontab -n " + tmp / "tab" + " >/dev/null 2>&1").c_str());
            const char *why = ksdb::cron_field_refusal(text, static_cast<ksdb::CronField>(field));
            EXPECT_EQ(why == nullptr, WIFEXITED(st) && WEXITSTATUS(st) == 0)
                << "field " << field << " '" << text << "': " << (why ? why : "accepted");
        }
    }
}

// Guards: the button script written with other content (the case folder
// backup/jobs-and-button sees it removed again).
TEST_F(JobFilesTest, BackupButtonScriptStandsOnlyForAMoment) {
    std::string seen;
    ksdb_observer obs{};
    obs.file = [](void *arg, const char *target, const char *tmp, int phase, int) {
        if (phase == 0 && std::strstr(target, "/etc/quillfold/backup_button_jobs"))
            *static_cast<std::string *>(arg) = read_file(tmp);
    };
    obs.arg = &seen;
    ksdb_set_observer(&obs);
    const int rc = ksdb_export(h(), db(), KSDB_CAT_BACKUP);
    ksdb_set_observer(nullptr);
    ASSERT_EQ(rc, 0) << log();
    EXPECT_EQ(seen, "#!/bin/sh\n/quillfold/bin/qfbackup -b\n");
}

namespace {

// A volume scan of the test's own: "data" is marked to be skipped, "pool"
// is a plain volume; with g_scan_fails the scan fails.
bool g_scan_fails = false;
int scan(const char *, ksdb_volume_list *list) {
    if (g_scan_fails) return -5;
    list->count = 2;
    list->volumes = new ksdb_volume_entry[2]{};
    std::strcpy(list->volumes[0].name, "data");
    list->volumes[0].flags = KSDB_VOLUME_IGNORED;
    std::strcpy(list->volumes[1].name, "pool");
    return 0;
}
void release(ksdb_volume_list *list) { delete[] list->volumes; }

}  // namespace

// Guards: a file written for an ignored volume; a failed scan emptying the table.
TEST_F(JobFilesTest, VolumeScheduleSkipsIgnoredVolumesAndAFailedScanChangesNothing) {
    ksdb_platform_ops ops{};
    ops.volume_scan = scan;
    ops.free_volume = release;
    ksdb_platform_set(&ops);
    put("/data/.volume_schedule.conf", "kept\n");
    sql().exec("INSERT INTO volume_schedule VALUES(1,'data',1,2,'0','1','*','*','*')");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_VOLUME_SCHEDULE), 0) << log();
    EXPECT_EQ(get("/data/.volume_schedule.conf"), "kept\n");
    EXPECT_FALSE(exists(at("/pool/.volume_schedule.conf")));
    EXPECT_TRUE(exists(at("/etc/cron.d/quillfold-volumeschedule")));

    g_scan_fails = true;
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_VOLUME_SCHEDULE), 0) << log();
    g_scan_fails = false;
    ksdb_platform_set(nullptr);
    EXPECT_EQ(sql().scalar("SELECT COUNT(*) FROM volume_schedule"), "1");
}
