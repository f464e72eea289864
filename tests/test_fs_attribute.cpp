// Share file-system attributes and statistics beyond their case folders.
#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>
#include <map>

using namespace ksdb_test;

namespace {

// Quota-group figures by effective path; "/data/gone" fails.
std::map<std::string, ksdb_qgroup_info> g_figures;

int fake_qgroup(const char *path, ksdb_qgroup_info *info) {
    auto it = g_figures.find(path);
    if (it == g_figures.end()) return std::strstr(path, "/data/gone") ? -EIO : -ENOENT;
    *info = it->second;
    return 0;
}

class FsAttributeTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        mkdirs(at("/data/._share"));
        g_figures.clear();
        ksdb_platform_ops ops{};
        ops.btrfs_get_qgroup_info = fake_qgroup;
        ksdb_platform_set(&ops);
    }
    void TearDown() override { ksdb_platform_set(nullptr); }
    // A share; attrs "compression,bit_rot_protection,mb_refquota" as SQL,
    // or "" for no zfs_attr row.
    void share(int id, const std::string &name, const std::string &attrs,
               const std::string &type = "share", const std::string &volume = "data") {
        const std::string zfs = volume + "/" + name;
        sql().exec("INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) "
                   "VALUES(" + std::to_string(id) + ",'" + zfs + "','" + type + "','" + volume +
                   "','" + name + "','/" + zfs + "',0,0)");
        if (!attrs.empty())
            sql().exec("INSERT INTO zfs_attr (share_id,compression,bit_rot_protection,mb_refquota) "
                       "VALUES(" + std::to_string(id) + "," + attrs + ")");
    }
    std::string conf(const std::string &name) { return "/data/._share/" + name + "/fs.conf"; }
};

// Guards: NULL attributes not off; other shares touched.
TEST_F(FsAttributeTest, SingleShareExportTakesNullAsOffAndTouchesOnlyThatShare) {
    share(1, "docs", "NULL,NULL,NULL");
    share(2, "media", "1,1,7");
    ASSERT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "docs"), 0) << log();
    const std::string docs = at("/data/docs");
    EXPECT_EQ(fake_calls(), (std::vector<FakeCall>{{"chattr", "-c", docs}, {"chattr", "+C", docs},
                                                   {"btrfs", "quota", "enable", docs},
                                                   {"btrfs", "qgroup", "limit", "none", docs}}));
    EXPECT_EQ(get(conf("docs")), "compression = \nbitrotprotection = \nrefquota = \n");
    EXPECT_FALSE(exists(at(conf("media"))));

    clear_fake_calls();
    EXPECT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "nope"), 0);
    EXPECT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, nullptr), KSDB_E_INVAL);
    EXPECT_TRUE(fake_calls().empty());
}

// Guards: a failing tool's status; its share's file or row changed.
TEST_F(FsAttributeTest, AFailingToolGivesEightAndKeepsThatShareAsItWas) {
    share(1, "docs", "1,1,100");
    share(2, "media", "NULL,NULL,50");
    const std::string old = "compression = 0\nbitrotprotection = 0\nrefquota = 1\n";
    put(conf("docs"), old);
    const auto before = sql().rows("SELECT * FROM zfs_attr ORDER BY share_id");
    ScopedEnv fail("KSDB_FAKE_FAIL", "chattr");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE), KSDB_E_SPAWN);
    EXPECT_EQ(get(conf("docs")), old);
    // The share that needs no chattr is still applied and written.
    const std::string media = at("/data/media");
    EXPECT_EQ(fake_calls("btrfs"), (std::vector<FakeCall>{{"btrfs", "quota", "enable", media},
                                                          {"btrfs", "qgroup", "limit", "50M", media}}));
    EXPECT_EQ(get(conf("media")), "compression = \nbitrotprotection = \nrefquota = 50\n");
    EXPECT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "docs"),
              KSDB_E_SPAWN);
    EXPECT_EQ(get(conf("docs")), old);
    EXPECT_EQ(sql().rows("SELECT * FROM zfs_attr ORDER BY share_id"), before);
}

// Guards: the quota-group texts; missing groups logged as failures; USB share figures
// not from their file system.
TEST_F(FsAttributeTest, ImportsStoreTheQuotaGroupTextsAndMeasureAUsbShareOnItsFileSystem) {
    ksdb_qgroup_info docs{};
    docs.max_referenced = 200 * 1048576ULL;
    std::strcpy(docs.logbias, "latency");
    std::strcpy(docs.sync, "always");
    g_figures[at("/data/docs")] = docs;
    share(1, "docs", "");
    share(2, "gone", "");
    share(3, "snap", "", "readonly");
    share(4, "USB_disk1", "", "share", "media");
    mkdirs(at("/media/USB_disk1"));
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE), 0) << log();
    EXPECT_EQ(sql().rows("SELECT share_id,mb_refquota,logbias,origin,sync FROM zfs_attr"),
              (std::vector<std::string>{"1|200|latency|<NULL>|always", "2|0|<NULL>|<NULL>|<NULL>",
                                        "3|0|<NULL>|<NULL>|<NULL>", "4|0|<NULL>|<NULL>|<NULL>"}));
    EXPECT_TRUE(contains(log(), "Failed to get quota config for data/gone (Input/output error)\n"));
    EXPECT_FALSE(contains(log(), "Failed to get quota config for data/snap"));

    // A USB share without a quota group is measured on its file system.
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_SHARE_STATS), 0) << log();
    struct statvfs sv;
    ASSERT_EQ(statvfs(at("/media/USB_disk1").c_str(), &sv), 0);
    const double avail = static_cast<double>(sv.f_bavail) * sv.f_bsize;
    const double used = static_cast<double>(sv.f_blocks) * sv.f_frsize - avail;
    // Free space moves while the test runs: within 64 MiB.
    EXPECT_NEAR(std::stod(sql().scalar("SELECT available FROM _zfs_stat WHERE share_id=4")), avail, 64 << 20);
    EXPECT_NEAR(std::stod(sql().scalar("SELECT used FROM _zfs_stat WHERE share_id=4")), used, 64 << 20);
    EXPECT_EQ(sql().scalar("SELECT usedbydataset=used FROM _zfs_stat WHERE share_id=4"), "1");
}

}  // namespace
