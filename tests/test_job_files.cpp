// Snapshot settings, backup jobs, volume schedules and replication jobs:
// round trips through the driver with every generated file checked by its
// own parser, values that try to change a file's structure, and what the
// case folders cannot express (cron's verdict on each field, the button
// script's short life, the volume scan).
#define KSDB_MODULE "test_job_files"
#include "util/ksdb_job_files.h"

#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <cstring>
#include <map>

using namespace ksdb_test;

namespace {

class JobFilesTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024)");
        sql().exec("INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) "
                   "VALUES(1,'data/docs','data','docs','/data/docs',0,0)");
        mkdirs(at("/data/._share"));
        mkdirs(at("/pool/._share"));
    }

    // Export, empty the tables, import, export again: every file must come
    // out byte for byte as the first export wrote it.
    void round_trip(int category, const std::vector<std::string> &files, const std::string &empty) {
        ASSERT_EQ(ksdb_export(h(), db(), category), 0) << log();
        std::map<std::string, std::string> first;
        for (const std::string &f : files) first[f] = get(f);
        sql().exec(empty);
        ASSERT_EQ(ksdb_import(h(), db(), category), 0) << log();
        ASSERT_EQ(ksdb_export(h(), db(), category), 0) << log();
        for (const std::string &f : files) EXPECT_EQ(get(f), first[f]) << f;
    }
};

}  // namespace

TEST_F(JobFilesTest, SnapshotSettingsRoundTrip) {
    std::string week;
    for (int i = 0; i < 168; ++i) week += i % 5 == 0 ? '1' : '0';
    sql().exec("INSERT INTO snapshot_schedule (share_id,enabled,minute,hour,day_of_month,"
               "day_of_week,month,purge_manual_snapshot) VALUES(1,0,'15','3','1-7','sat','*',1)");
    sql().exec("INSERT INTO snapshot_management VALUES(1,1,2,3600,5,'" + week + "',0,1)");
    sql().exec("INSERT INTO snapshot_management VALUES(0,0,1,7200,9,'" + week + "',1,0)");
    round_trip(KSDB_CAT_SNAPSHOT,
               {"/data/._share/docs/snapshot.conf",
                "/data/._share/docs/custom_snapshot_management.conf",
                "/data/._share/docs/custom_snapshot_schedule.conf",
                "/etc/quillfold/custom_snapshot_management.conf",
                "/etc/quillfold/custom_snapshot_schedule.conf"},
               "DELETE FROM snapshot_schedule; DELETE FROM snapshot_management");
    EXPECT_EQ(sql().scalar("SELECT schedule FROM snapshot_management WHERE share_id=1"), week);
}

TEST_F(JobFilesTest, BackupJobsRoundTripAndMarkupStaysText) {
    // A name with a line feed and closing tags, a path that closes a CDATA
    // section: both must stay text of their element.
    const std::string name = "a\n</name><enabled>1</enabled><name>";
    const std::string path = "/x]]><!--";
    sql().exec("INSERT INTO backup (id,name,enabled,sch_every,sch_start,sch_end,sch_dow,src_path,"
               "src_port,src_eject,dst_port,dst_eject,opt_full_backup_freq,"
               "opt_remove_previous_backup,opt_chown_to_share_owner,opt_rsync_options,"
               "opt_email_this_to_alert_email,opt_misc_option,wol_addr) VALUES(1,'" + name +
               "',0,2,8,20,62,'" + path + "',1,0,2,0,'monthly',0,1,0,1,0,'01:02:03:04:05:06')");
    sql().exec("INSERT INTO backup (id,name,enabled,sch_every,sch_start,sch_end,sch_dow,src_type,"
               "src_share_proto,src_port,src_eject,dst_port,dst_eject,opt_full_backup_freq,"
               "opt_remove_previous_backup,opt_chown_to_share_owner,opt_rsync_options,"
               "opt_email_this_to_alert_email,opt_misc_option) VALUES(250,'daily',1,1,0,23,127,"
               "'share','docs',0,0,0,0,'',0,0,0,0,0)");
    sql().exec("INSERT INTO backup (id,name,enabled,sch_every,sch_start,sch_end,sch_dow,src_port,"
               "src_eject,dst_port,dst_eject,opt_remove_previous_backup,opt_chown_to_share_owner,"
               "opt_rsync_options,opt_email_this_to_alert_email,opt_misc_option) "
               "VALUES(3,'no day',1,12,6,18,0,0,0,0,0,0,0,0,0,0)");
    sql().exec("INSERT INTO backup_button_jobs VALUES(1,250)");
    round_trip(KSDB_CAT_BACKUP,
               {"/etc/quillfold/backup_jobs.conf", "/etc/cron.d/quillfold-backup",
                "/etc/quillfold/backup_wol_addr"},
               "DELETE FROM backup; DELETE FROM backup_button_jobs");
    EXPECT_EQ(sql().column("SELECT name FROM backup ORDER BY id"),
              (std::vector<std::string>{name, "no day", "daily"}));
    EXPECT_EQ(sql().scalar("SELECT src_path FROM backup WHERE id=1"), path);
    EXPECT_EQ(get("/etc/cron.d/quillfold-backup"),
              "#5 06-18/12 * * - root /quillfold/bin/qfbackup 003 &> /dev/null\n"
              "5 00-23/1 * * sun,mon,tue,wed,thu,fri,sat root /quillfold/bin/qfbackup 250 "
              "&> /dev/null\n");
}

TEST_F(JobFilesTest, VolumeSchedulesRoundTrip) {
    sql().exec("INSERT INTO volume_schedule VALUES(1,'data',1,2,'*/10','0-6,22,23','*','*','*')");
    sql().exec("INSERT INTO volume_schedule VALUES(2,'pool',0,1,'<b>&amp;','\"x\"','*','*','*')");
    sql().exec("INSERT INTO volume_schedule VALUES(3,'POOL',1,5,'0','12','15','*','*')");
    round_trip(KSDB_CAT_VOLUME_SCHEDULE,
               {"/data/.volume_schedule.conf", "/pool/.volume_schedule.conf",
                "/etc/cron.d/quillfold-volumeschedule"},
               "DELETE FROM volume_schedule");
    EXPECT_EQ(sql().scalar("SELECT minute||hour FROM volume_schedule WHERE job_id=2"),
              "<b>&amp;\"x\"");
}

TEST_F(JobFilesTest, ReplicationJobsRoundTrip) {
    std::string week(168, '0');
    week[0] = week[9] = week[167] = '1';
    sql().exec("INSERT INTO replisync VALUES(1,'to nas2',1,'a.local',22,'/data/docs','b.local',"
               "2222,'/pool/docs',60,100,1,'2','" + week + "')");
    sql().exec("INSERT INTO replisync VALUES(2,'paused',0,'c',1,'/c','d',2,'/d',0,0,0,'0','" +
               std::string(168, '1') + "')");
    round_trip(KSDB_CAT_REPLISYNC, {"/etc/replisync/replisync.conf"}, "DELETE FROM replisync");
    EXPECT_NE(get("/etc/replisync/replisync.conf")
                  .find("schedule = 0102" + std::string(36, '0') + "80\n"),
              std::string::npos)
        << get("/etc/replisync/replisync.conf");
}

// Whatever the cron field check lets through, cron's own parser reads; and
// what it refuses, cron refuses too.
TEST(CronFieldTest, AgreesWithCronsOwnParser) {
    if (!have_program("crontab")) GTEST_SKIP() << "cron's crontab is not installed";
    using ksdb::CronField;
    const std::vector<std::pair<CronField, std::string>> fields = {
        {CronField::kMinute, "0"},       {CronField::kMinute, "59"},
        {CronField::kMinute, "60"},      {CronField::kMinute, "*/5"},
        {CronField::kMinute, "0-59/15"}, {CronField::kMinute, "1,2,3"},
        {CronField::kMinute, "5-"},      {CronField::kMinute, "*/0"},
        {CronField::kMinute, "1/2"},     {CronField::kMinute, ",1"},
        {CronField::kMinute, "1,,2"},    {CronField::kMinute, "x"},
        {CronField::kHour, "23"},        {CronField::kHour, "24"},
        {CronField::kHour, "22-2"},      {CronField::kHour, "00-23/4"},
        {CronField::kDayOfMonth, "1"},   {CronField::kDayOfMonth, "0"},
        {CronField::kDayOfMonth, "31"},  {CronField::kDayOfMonth, "32"},
        {CronField::kMonth, "12"},       {CronField::kMonth, "13"},
        {CronField::kMonth, "jan"},      {CronField::kMonth, "DEC"},
        {CronField::kMonth, "jan-jun/2"}, {CronField::kMonth, "sun"},
        {CronField::kDayOfWeek, "0"},    {CronField::kDayOfWeek, "7"},
        {CronField::kDayOfWeek, "8"},    {CronField::kDayOfWeek, "Sat"},
        {CronField::kDayOfWeek, "mon-fri"}, {CronField::kDayOfWeek, "sun,7"},
        {CronField::kDayOfWeek, "-"},    {CronField::kDayOfWeek, "jan"},
    };
    TempDir tmp;
    for (const auto &[field, text] : fields) {
        std::vector<std::string> line = {"0", "0", "1", "1", "0"};
        line[static_cast<int>(field)] = text;
        write_file(tmp / "tab", line[0] + " " + line[1] + " " + line[2] + " " + line[3] + " " +
                                    line[4] + " /bin/true\n");
        const int st = std::system(("crontab -n " + tmp / "tab" + " >/dev/null 2>&1").c_str());
        const bool cron_reads = WIFEXITED(st) && WEXITSTATUS(st) == 0;
        const char *why = ksdb::cron_field_refusal(text, field);
        EXPECT_EQ(why == nullptr, cron_reads)
            << "field " << static_cast<int>(field) << " '" << text << "': "
            << (why ? why : "accepted");
    }
}

TEST_F(JobFilesTest, BackupButtonScriptStandsOnlyForAMoment) {
    struct Seen {
        std::string content;
    } seen;
    ksdb_observer obs{};
    obs.file = [](void *arg, const char *target, const char *tmp, int phase, int) {
        if (phase == 0 && std::strstr(target, "/etc/quillfold/backup_button_jobs"))
            static_cast<Seen *>(arg)->content = read_file(tmp);
    };
    obs.arg = &seen;
    ksdb_set_observer(&obs);
    const int rc = ksdb_export(h(), db(), KSDB_CAT_BACKUP);
    ksdb_set_observer(nullptr);
    ASSERT_EQ(rc, 0) << log();
    EXPECT_EQ(seen.content, "#!/bin/sh\n/quillfold/bin/qfbackup -b\n");
    EXPECT_FALSE(exists(at("/etc/quillfold/backup_button_jobs")));
}

TEST_F(JobFilesTest, BackupExportReportsAnyFailureAsOne) {
    sql().exec("INSERT INTO backup (id,name) VALUES(1,'x')");
    put("/etc/cron.d", "a file where the cron folder should be");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_BACKUP), 1);
    sql().exec("DROP TABLE backup_button_jobs");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_BACKUP), 1);
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

TEST_F(JobFilesTest, SnapshotExportChecksEveryValueBeforeWritingAnyFile) {
    // The schedule line is fine; the home folders' retention number that
    // comes last would start a new line: nothing at all may be written.
    sql().exec("INSERT INTO snapshot_schedule (share_id,enabled,minute,hour,day_of_month,"
               "day_of_week,month,purge_manual_snapshot) VALUES(1,1,'0','1','*','*','*',0)");
    sql().exec("INSERT INTO snapshot_management (share_id,number) VALUES(0,'7'||char(10)||'x')");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_SNAPSHOT), 4);
    EXPECT_NE(log().find("Refused snapshot_management.number of '(home folders)'"),
              std::string::npos);
    EXPECT_FALSE(exists(at("/data/._share/docs/snapshot.conf")));
    EXPECT_FALSE(exists(at("/etc/quillfold/custom_snapshot_management.conf")));
}

TEST_F(JobFilesTest, SnapshotExportMakesTheSettingsSubvolumeOfAVolumeThatLacksIt) {
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('fresh','fresh',1024)");
    sql().exec("INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) "
               "VALUES(2,'fresh/new','fresh','new','/fresh/new',0,0)");
    sql().exec("INSERT INTO snapshot_management (share_id) VALUES(2)");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SNAPSHOT), 0) << log();
    EXPECT_EQ(fake_calls("btrfs"),
              (std::vector<FakeCall>{{"btrfs", "subvolume", "create", at("/fresh/._share")}}));
    EXPECT_EQ(get("/fresh/._share/new/custom_snapshot_management.conf"),
              "enabled = no\nretention_rule = lifetime\nlifetime = 2592000\nnumber = 30\n"
              "nonempty_snapshots = no\nprev_versions = no\n");
}

TEST_F(JobFilesTest, JobFileEntitiesNeverReadOtherFiles) {
    put("/secret", "the administrator's password");
    put("/etc/quillfold/backup_jobs.conf",
        "<!DOCTYPE backupJobs [<!ENTITY ext SYSTEM \"file://" + at("/secret") + "\">]>\n"
        "<backupJobs><backupJob><job_id>1</job_id><name>a&ext;b</name></backupJob></backupJobs>\n");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_BACKUP), 0) << log();
    EXPECT_EQ(sql().scalar("SELECT name FROM backup WHERE id=1"), "ab");
}
