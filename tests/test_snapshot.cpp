// The scan of existing snapshots (creation times through the recording fake) and the look-ups.
#include "tests/support/test_support.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

using namespace ksdb_test;

namespace {

class SnapshotScanTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        // Times in the snapshot files are local times.
        tz_ = std::make_unique<ScopedEnv>("TZ", "UTC");
        tzset();
        sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024)");
        sql().exec("INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES"
                   "(1,'data/docs','data','docs','/data/docs',0,0),"
                   "(2,'data/archive','data','archive','/data/archive',0,0)");
        for (const char *d : {"/data/._share/docs", "/data/._share/archive", "/data/archive"}) mkdirs(at(d));
        manager_snapshot("docs", "1", "2024-01-02 03:04:05", "m_daily");
        manager_snapshot("docs", "2", "2024-01-03 03:04:05", ".in-progress");
        settings_snapshot("docs", "s_weekly", "2024-02-01 00:00:01");
        settings_snapshot("archive", "r_from-nas2", nullptr);
    }
    void TearDown() override {
        tz_.reset();
        tzset();
    }

    // A snapshot of the snapshot manager, described by its info.xml.
    void manager_snapshot(const std::string &share, const std::string &n, const std::string &date,
                          const std::string &name) {
        const std::string dir = at("/data/" + share + "/.snapshots/" + n);
        mkdirs(dir + "/snapshot");
        write_file(dir + "/info.xml", "<?xml version=\"1.0\"?>\n<snapshot>\n  <type>single</type>\n"
                                      "  <num>" + n + "</num>\n  <date>" + date + "</date>\n"
                                      "  <userdata>\n    <key>name</key>\n    <value>" + name +
                                      "</value>\n  </userdata>\n</snapshot>\n");
    }
    // A snapshot subvolume beside the share's settings; `created` is what
    // the file-system tool shows (its default when null).
    void settings_snapshot(const std::string &share, const std::string &name, const char *created) {
        const std::string dir = at("/data/._share/" + share + "/.snapshot/" + name);
        mkdirs(dir);
        if (created) write_file(dir + "/.fake-creation", created);
    }

    std::vector<std::string> snapshots() {
        return sql().rows("SELECT zfs_name,name,type,created_on FROM `$snapshot` ORDER BY name");
    }

    std::unique_ptr<ScopedEnv> tz_;
};

}  // namespace

// Guards: a snapshot kind, type or creation time read wrongly; paths outside the root;
// the latest snapshot's name, and the failures.
TEST_F(SnapshotScanTest, RecordsBothKindsOfSnapshotWithTypeAndTimeAndFindsTheLatest) {
    // A share folder with settings and a snapshot that the database does not know.
    mkdirs(at("/data/orphan"));
    settings_snapshot("orphan", "m_x", nullptr);
    ASSERT_EQ(ksdb_snapshots_import_zfs(h(), db(), nullptr, nullptr), 0) << log();
    EXPECT_EQ(snapshots(), (std::vector<std::string>{
                               "data/docs|m_daily|2|1704164645",
                               "data/archive|r_from-nas2|3|1709816709",
                               "data/docs|s_weekly|4|1706745601",
                           }));
    EXPECT_TRUE(contains(log(), "Specified ShareName(orphan) is not exist."));
    // Creation times come from the file-system tool, given paths below the root.
    const FakeCall show = {"btrfs", "subvolume", "show", at("/data/._share/docs/.snapshot/s_weekly")};
    const auto calls = fake_calls("btrfs");
    EXPECT_NE(std::find(calls.begin(), calls.end(), show), calls.end());

    char *name = nullptr;
    ASSERT_EQ(ksdb_getLatestSnapshotName(h(), db(), "data/docs", &name), 0) << log();
    EXPECT_STREQ(name, "s_weekly");
    EXPECT_EQ(ksdb_getLatestSnapshotName(h(), db(), "data/none", &name), 1);
    EXPECT_EQ(name, nullptr);
    EXPECT_TRUE(contains(log(), "ksdb_getLatestSnapshotName: No dataset found in $snapshot."));
    EXPECT_EQ(ksdb_getLatestSnapshotName(h(), db(), nullptr, &name), 4);
}

// Guards: a filter replacing other shares' snapshots; a snapshot without time recorded;
// the caller's transaction ended.
TEST_F(SnapshotScanTest, TheShareFilterReplacesThatShareOnlyAndATimelessSnapshotIsPassedOver) {
    sql().exec("INSERT INTO `$snapshot` (zfs_name,name,type,created_on) VALUES"
               "('data/archive','r_gone',3,1),('data/docs','m_old',2,1)");
    ASSERT_EQ(ksdb_snapshots_import_zfs(h(), db(), "other", nullptr), 0) << log();
    EXPECT_EQ(snapshots().size(), 2u);

    ASSERT_EQ(ksdb_snapshots_import_zfs(h(), db(), "data", "archive"), 0) << log();
    EXPECT_EQ(snapshots(), (std::vector<std::string>{
                               "data/docs|m_old|2|1",
                               "data/archive|r_from-nas2|3|1709816709",
                           }));

    // A snapshot without its time ends the scan with success, inside a
    // transaction of the caller's, which the scan leaves open.
    manager_snapshot("archive", "7", "", "c_broken");
    sql().exec("BEGIN");
    EXPECT_EQ(ksdb_snapshots_import_zfs(h(), db(), nullptr, "archive"), 0) << log();
    EXPECT_EQ(sqlite3_get_autocommit(db()), 0);
    sql().exec("COMMIT");
    EXPECT_TRUE(contains(log(), "share_name[archive], snapshot_name[c_broken], time[0]"));
    EXPECT_EQ(sql().scalar("SELECT COUNT(*) FROM `$snapshot` WHERE name='c_broken'"), "0");
}

// Guards: the used bytes not from the platform's snapshot path.
TEST_F(SnapshotScanTest, UsedBytesOfASnapshotThroughThePlatformPath) {
    write_file(at("/data/docs/.snapshots/1/snapshot/.fake-qgroup"), "123456 4096 none");
    uint64_t used = 0;
    ASSERT_EQ(ksdb_getSnapshotUsedInBytes(h(), db(), "/data/docs", "1", &used), 0) << log();
    EXPECT_EQ(used, 123456u);
    EXPECT_NE(log().find("share_path = /data/docs, snapshot_name = 1, snapshot_path = " +
                         at("/data/docs/.snapshots/1/snapshot")),
              std::string::npos);
    EXPECT_EQ(ksdb_getSnapshotUsedInBytes(h(), db(), "/data/docs", "missing", &used), 11);
    EXPECT_EQ(ksdb_getSnapshotUsedInBytes(h(), db(), "/data/docs", nullptr, &used), 4);
}
