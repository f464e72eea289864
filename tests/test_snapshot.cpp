// The scan of existing snapshots (creation times through the recording fake) and the look-ups.
#include "tests/support/case_runner.h"
#include "tests/support/test_support.h"

#include <algorithm>
#include <ctime>

using namespace ksdb_test;

namespace {

const std::string kTrees = KSDB_TEST_DATA_DIR "/snapshot-scan";

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
        // Two snapshots of the snapshot manager (their info.xml), two beside the shares'
        // settings (one with the file-system tool's default creation time), and a
        // share folder with settings and a snapshot that the database does not know.
        copy_tree(kTrees + "/base", root());
    }
    void TearDown() override {
        tz_.reset();
        tzset();
    }

    std::vector<std::string> snapshots() {
        return sql().rows("SELECT zfs_name,name,type,created_on FROM `$snapshot` ORDER BY name");
    }

    std::unique_ptr<ScopedEnv> tz_;
};

}  // namespace

// Guards: a snapshot kind, type or creation time read wrongly; paths outside the root;
// the latest snapshot's name, and the failures; the used bytes not from the
// platform's snapshot path.
TEST_F(SnapshotScanTest, RecordsBothKindsOfSnapshotWithTypeAndTimeAndFindsTheLatest) {
    ASSERT_EQ(ksdb_snapshots_import_zfs(h(), db(), nullptr, nullptr), 0) << log();
    EXPECT_EQ(snapshots(), (std::vector<std::string>{
                               "data/docs|m_daily|2|1704164645",
                               "data/archive|r_from-nas2|3|1709816709",
                               "data/docs|s_weekly|4|1706745601",
                           }));
    EXPECT_TRUE(contains(log(), "Specified ShareName(orphan) is not exist."));
    // Creation times come from the file-system tool, given paths below the root.
    const FakeCall show = {"btrfs", "subvolume", "show", at("/data/._share/docs/.snapshot/s_weekly")};
    EXPECT_EQ(std::ranges::count(fake_calls("btrfs"), show), 1);

    char *name = nullptr;
    ASSERT_EQ(ksdb_getLatestSnapshotName(h(), db(), "data/docs", &name), 0) << log();
    EXPECT_STREQ(name, "s_weekly");
    EXPECT_EQ(ksdb_getLatestSnapshotName(h(), db(), "data/none", &name), 1);
    EXPECT_EQ(name, nullptr);
    EXPECT_TRUE(contains(log(), "ksdb_getLatestSnapshotName: No dataset found in $snapshot."));
    EXPECT_EQ(ksdb_getLatestSnapshotName(h(), db(), nullptr, &name), 4);

    // The used bytes of a snapshot (its .fake-qgroup) are those of its path on the platform.
    uint64_t used = 0;
    ASSERT_EQ(ksdb_getSnapshotUsedInBytes(h(), db(), "/data/docs", "1", &used), 0) << log();
    EXPECT_EQ(used, 123456u);
    EXPECT_TRUE(contains(log(), "share_path = /data/docs, snapshot_name = 1, snapshot_path = " +
                                    at("/data/docs/.snapshots/1/snapshot")));
    EXPECT_EQ(ksdb_getSnapshotUsedInBytes(h(), db(), "/data/docs", "missing", &used), 11);
    EXPECT_EQ(ksdb_getSnapshotUsedInBytes(h(), db(), "/data/docs", nullptr, &used), 4);
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
    copy_tree(kTrees + "/timeless", root());
    sql().exec("BEGIN");
    EXPECT_EQ(ksdb_snapshots_import_zfs(h(), db(), nullptr, "archive"), 0) << log();
    EXPECT_EQ(sqlite3_get_autocommit(db()), 0);
    sql().exec("COMMIT");
    EXPECT_TRUE(contains(log(), "share_name[archive], snapshot_name[c_broken], time[0]"));
    EXPECT_EQ(sql().scalar("SELECT COUNT(*) FROM `$snapshot` WHERE name='c_broken'"), "0");
}
