// Share file-system attributes and statistics: what the case folders
// cannot express (the single-share export, failing tools, refused values,
// quota-group figures from the platform, the demo appliance).
#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>

using namespace ksdb_test;

namespace {

// Quota-group figures by effective path; every path asked is recorded.
std::map<std::string, ksdb_qgroup_info> g_figures;
std::vector<std::string> g_asked;

int fake_qgroup(const char *path, ksdb_qgroup_info *info) {
    g_asked.push_back(path);
    auto it = g_figures.find(path);
    if (it == g_figures.end()) return std::strstr(path, "gone") ? -EIO : -ENOENT;
    *info = it->second;
    return 0;
}

ksdb_qgroup_info figures(uint64_t referenced, uint64_t max, uint64_t snapshots,
                         const char *ratio = "", const char *logbias = "") {
    ksdb_qgroup_info q{};
    q.referenced = referenced;
    q.max_referenced = max;
    q.snapshots_used = snapshots;
    std::snprintf(q.compressratio, sizeof q.compressratio, "%s", ratio);
    std::snprintf(q.logbias, sizeof q.logbias, "%s", logbias);
    return q;
}

class FsAttributeTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        mkdirs(at("/data/._share"));
        g_figures.clear();
        g_asked.clear();
    }
    void TearDown() override { ksdb_platform_set(nullptr); }
    void use_fake_qgroup() {
        ksdb_platform_ops ops{};
        ops.btrfs_get_qgroup_info = fake_qgroup;
        ksdb_platform_set(&ops);
    }
    // A share of the volume "data"; attrs: "compression,bit_rot,mb_refquota"
    // as SQL values, or "" for no zfs_attr row.
    void share(int id, const std::string &name, const std::string &attrs,
               const char *type = "share", const char *volume = "data") {
        const std::string zfs = std::string(volume) + "/" + name;
        char *q = sqlite3_mprintf(
            "INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) "
            "VALUES(%d,%Q,%Q,%Q,%Q,%Q,0,0)",
            id, zfs.c_str(), type, volume, name.c_str(), ("/" + zfs).c_str());
        sql().exec(q);
        sqlite3_free(q);
        if (!attrs.empty())
            sql().exec("INSERT INTO zfs_attr (share_id,compression,bit_rot_protection,mb_refquota) "
                       "VALUES(" + std::to_string(id) + "," + attrs + ")");
    }
    std::string conf_path(const std::string &name) { return "/data/._share/" + name + "/fs.conf"; }
    std::vector<FakeCall> applied(const std::string &name, const char *c, const char *b,
                                  const char *quota) {
        const std::string p = at("/data/" + name);
        std::vector<FakeCall> calls;
        if (c) calls.push_back({"chattr", c, p});
        if (b) calls.push_back({"chattr", b, p});
        calls.push_back({"btrfs", "quota", "enable", p});
        calls.push_back({"btrfs", "qgroup", "limit", quota, p});
        return calls;
    }
};

TEST_F(FsAttributeTest, SingleShareExportTakesNullAsOffAndTouchesOnlyThatShare) {
    share(1, "docs", "NULL,NULL,NULL");
    share(2, "media", "1,1,7");
    ASSERT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "docs"), 0) << log();
    EXPECT_EQ(fake_calls(), applied("docs", "-c", "+C", "none"));
    EXPECT_EQ(get(conf_path("docs")), "compression = \nbitrotprotection = \nrefquota = \n");
    EXPECT_FALSE(exists(at(conf_path("media"))));

    clear_fake_calls();
    sql().exec("UPDATE zfs_attr SET compression=0,mb_refquota=100 WHERE share_id=1");
    ASSERT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "docs"), 0);
    EXPECT_EQ(fake_calls(), applied("docs", "-c", "+C", "100M"));

    clear_fake_calls();
    EXPECT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "nope"), 0);
    EXPECT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, nullptr), KSDB_E_INVAL);
    EXPECT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_CIFS_SHARE, "docs"), KSDB_E_INVAL);
    EXPECT_TRUE(fake_calls().empty());
}

TEST_F(FsAttributeTest, NamesWithShellCharactersReachTheToolsAsOneArgument) {
    const std::string name = "it's $(touch pwned) & `touch pwned2`;x";
    share(1, name, "1,1,5");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE), 0) << log();
    EXPECT_EQ(fake_calls(), applied(name, "+c", "-C", "5M"));
    EXPECT_EQ(get(conf_path(name)), "compression = 1\nbitrotprotection = 1\nrefquota = 5\n");
    for (const char *f : {"pwned", "pwned2"}) {
        EXPECT_FALSE(exists(at(std::string("/") + f)));
        EXPECT_FALSE(exists(f));
    }
}

TEST_F(FsAttributeTest, AFailingToolGivesEightAndKeepsThatShareAsItWas) {
    share(1, "docs", "1,1,100");
    share(2, "media", "NULL,NULL,50");
    put(conf_path("docs"), "compression = 0\nbitrotprotection = 0\nrefquota = 1\n");
    const auto before = sql().rows("SELECT * FROM zfs_attr ORDER BY share_id");
    ScopedEnv fail("KSDB_FAKE_FAIL", "chattr");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE), KSDB_E_SPAWN);
    EXPECT_EQ(get(conf_path("docs")), "compression = 0\nbitrotprotection = 0\nrefquota = 1\n");
    // The other share, which needs no chattr, is still applied and written.
    EXPECT_EQ(fake_calls("btrfs"), applied("media", nullptr, nullptr, "50M"));
    EXPECT_EQ(get(conf_path("media")), "compression = \nbitrotprotection = \nrefquota = 50\n");
    EXPECT_EQ(sql().rows("SELECT * FROM zfs_attr ORDER BY share_id"), before);
    EXPECT_EQ(ksdb_export_per_share(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE, "docs"),
              KSDB_E_SPAWN);
    EXPECT_EQ(get(conf_path("docs")), "compression = 0\nbitrotprotection = 0\nrefquota = 1\n");
}

TEST_F(FsAttributeTest, AValueThatWouldBreakFsConfIsRefusedBeforeAnyCommand) {
    share(1, "docs", "1,0,100");
    share(2, "media", "'1'||char(10)||'refquota = 9',0,5");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE), KSDB_E_INVAL);
    EXPECT_TRUE(fake_calls().empty());
    EXPECT_FALSE(exists(at(conf_path("docs"))));
    EXPECT_NE(log().find("Refused zfs_attr.compression of 'media'"), std::string::npos);
}

TEST_F(FsAttributeTest, ImportTakesTheQuotaGroupAndLetsFsConfOverrideIt) {
    use_fake_qgroup();
    g_figures[at("/data/docs")] = figures(0, 200 * 1048576ULL, 0, "", "latency");
    g_figures[at("/data/media")] = figures(0, 300 * 1048576ULL, 0);
    put(conf_path("media"), "# kept by hand\nrefquota = 100\ncompression = yes\nbitrotprotection "
                            "= off\nsize = a = b\nbogus line\n");
    share(1, "docs", "");
    share(2, "media", "");
    share(3, "gone", "");
    share(4, "snap", "", "readonly");
    share(5, "lun", "", "zvol");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE), 0) << log();
    EXPECT_EQ(sql().rows("SELECT share_id,mb_refquota,logbias,origin FROM zfs_attr ORDER BY 1"),
              (std::vector<std::string>{"1|200|latency|<NULL>", "2|100|<NULL>|<NULL>",
                                        "3|0|<NULL>|<NULL>", "4|0|<NULL>|<NULL>"}));
    EXPECT_EQ(sql().rows("SELECT compression,bit_rot_protection FROM zfs_attr WHERE share_id=2"),
              std::vector<std::string>{"1|0"});
    EXPECT_NE(log().find("Failed to get quota config for data/gone (Input/output error)\n"),
              std::string::npos);
    EXPECT_EQ(log().find("Failed to get quota config for data/snap"), std::string::npos);
}

TEST_F(FsAttributeTest, ImportThenExportGivesTheSameCommandsAndFiles) {
    const std::string docs = "compression = 1\nbitrotprotection = 0\nrefquota = 100\n";
    const std::string media = "compression = 0\nbitrotprotection = 1\nrefquota = 0\n";
    put(conf_path("docs"), docs);
    put(conf_path("media"), media);
    share(1, "docs", "");
    share(2, "media", "");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE), 0) << log();
    clear_fake_calls();
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SHARE_FS_ATTRIBUTE), 0) << log();
    auto want = applied("docs", "+c", "+C", "100M");
    for (auto &c : applied("media", "-c", "-C", "none")) want.push_back(c);
    EXPECT_EQ(fake_calls(), want);
    EXPECT_EQ(get(conf_path("docs")), docs);
    EXPECT_EQ(get(conf_path("media")), media);
}

TEST_F(FsAttributeTest, StatisticsMeasureSharesSnapshotsAndUsbDisks) {
    use_fake_qgroup();
    mkdirs(at("/data/snapview/.snapshots/s1/snapshot"));
    mkdirs(at("/data/snapview/.snapshots/s2/snapshot"));
    mkdirs(at("/media/USB_disk1"));
    g_figures[at("/data/docs")] = figures(5242880, 0, 4096, "1.50x");
    g_figures[at("/data/snapview/.snapshots/s2/snapshot")] = figures(7777, 0, 0, "1.00x");
    share(1, "docs", "");
    share(2, "snapview", "", "readonly");
    share(3, "USB_disk1", "", "share", "media");
    sql().exec("INSERT INTO `$snapshot` (zfs_name,name,type,created_on) VALUES "
               "('data/snapview','s1',0,100),('data/snapview','s2',0,200)");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_SHARE_STATS), 0) << log();

    struct statvfs sv;
    ASSERT_EQ(statvfs(at("/media/USB_disk1").c_str(), &sv), 0);
    const unsigned long long avail = static_cast<unsigned long long>(sv.f_bavail) * sv.f_bsize;
    const unsigned long long used = static_cast<unsigned long long>(sv.f_blocks) * sv.f_frsize - avail;
    // The free space moves while the test runs: compare the USB row loosely.
    auto rows = sql().rows("SELECT * FROM _zfs_stat ORDER BY share_id");
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0], "1|0|5242880|0|5242880|0|4096|1.50x|<NULL>");
    EXPECT_EQ(rows[1], "2|0|7777|0|7777|0|0|1.00x|<NULL>");
    EXPECT_NEAR(std::stod(sql().scalar("SELECT available FROM _zfs_stat WHERE share_id=3")),
                static_cast<double>(avail), 64 * 1048576.0);
    EXPECT_NEAR(std::stod(sql().scalar("SELECT used FROM _zfs_stat WHERE share_id=3")),
                static_cast<double>(used), 64 * 1048576.0);
    EXPECT_NE(log().find("Latest snapshot name. fs_name = data/snapview, snapshot_name = s2\n"),
              std::string::npos);
    EXPECT_NE(log().find("snapshot_path = /data/snapview/.snapshots/s2/snapshot\n"),
              std::string::npos);

    sql().exec("DROP TABLE _zfs_stat");
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_SHARE_STATS), KSDB_E_DB);
}

TEST_F(FsAttributeTest, AllImportOfTheDemoApplianceGivesEveryShareItsAttributes) {
    namespace fs = std::filesystem;
    fs::copy(KSDB_CASES_DIR "/../../examples/demo-root", root(),
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ALL), 0) << log();
    EXPECT_EQ(sql().rows("SELECT S.name,Z.share_id IS NOT NULL FROM share S LEFT JOIN zfs_attr Z "
                         "ON Z.share_id=S.id ORDER BY S.name"),
              (std::vector<std::string>{"archive|1", "docs|1", "public|1"}));
    EXPECT_EQ(sql().rows("SELECT Z.mb_refquota,Z.compression,Z.bit_rot_protection FROM zfs_attr Z "
                         "JOIN share S ON S.id=Z.share_id WHERE S.name='docs'"),
              std::vector<std::string>{"10240|1|1"});
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0) << log();
    const std::string shares = get("/etc/quillfold/samba/Shares.conf");
    for (const char *s : {"[archive]\n", "[docs]\n", "[public]\n"})
        EXPECT_NE(shares.find(s), std::string::npos) << s;
}

}  // namespace
