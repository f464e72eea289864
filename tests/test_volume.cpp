// Volumes, the maintenance log and the share file-system attributes.
#define KSDB_MODULE "test_volume"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <cstring>
#include <ctime>

using namespace ksdb_test;

namespace {

// A stand-in for the platform's volume scan: what the test sets here.
std::vector<ksdb_volume_entry> g_volumes;
int g_scan_result = 0;
std::string g_scan_root;

int fake_scan(const char *root, ksdb_volume_list *list) {
    g_scan_root = root ? root : "<none>";
    if (g_scan_result != 0) return g_scan_result;
    list->count = static_cast<int>(g_volumes.size());
    list->volumes = new ksdb_volume_entry[g_volumes.size() + 1];
    for (size_t i = 0; i < g_volumes.size(); ++i) list->volumes[i] = g_volumes[i];
    return 0;
}

void fake_free(ksdb_volume_list *list) {
    delete[] list->volumes;
    list->volumes = nullptr;
    list->count = 0;
}

ksdb_volume_entry volume(const char *name, int status, uint8_t flags, const char *dev) {
    ksdb_volume_entry v{};
    std::snprintf(v.name, sizeof v.name, "%s", name);
    v.status = status;
    v.flags = flags;
    const uint16_t words[8] = {0x0123, 0x4567, 0x89ab, 0xcdef, 0x0001, 0x0002, 0x0a0b, 0xffff};
    std::memcpy(v.uuid, words, sizeof words);
    v.blk_total = 1000000;
    v.blk_free = 250000;
    if (dev) {
        v.ndevices = 1;
        std::snprintf(v.devices[0], sizeof v.devices[0], "%s", dev);
    }
    return v;
}

class VolumeTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        g_volumes.clear();
        g_scan_result = 0;
    }
    void use_fake_scan() {
        ksdb_platform_ops ops{};
        ops.volume_scan = fake_scan;
        ops.free_volume = fake_free;
        ksdb_platform_set(&ops);
    }
    void TearDown() override { ksdb_platform_set(nullptr); }

    std::vector<std::string> volumes() {
        return sql().rows(
            "SELECT id,lv_name,uuid,devname,blk_total,blk_free,blk_size,zfs_type,volume_health "
            "FROM _volume ORDER BY lv_name");
    }
};

}  // namespace

TEST_F(VolumeTest, ImportRecordsScannedVolumesAndTheMediaPseudoVolume) {
    use_fake_scan();
    g_volumes = {volume("data", 1, 0, "sda3"), volume("ignored", 1, KSDB_VOLUME_IGNORED, "sdc"),
                 volume("backup", 3, 0, nullptr), volume("odd", 9, 0, "sdd")};
    // The category also imports the accounts, which need their files.
    for (const char *f : {"/etc/passwd", "/etc/shadow", "/etc/group"}) put(f, "");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_VOLUME), 0);
    EXPECT_EQ(g_scan_root, root());
    EXPECT_EQ(volumes(),
              (std::vector<std::string>{
                  "backup|backup|01234567-89ab-cdef-0001-00020a0bffff||1000000|250000|1024||DEGRADED",
                  "data|data|01234567-89ab-cdef-0001-00020a0bffff|sda3|1000000|250000|1024||REDUNDANT",
                  "media|media|<NULL>|<NULL>|<NULL>|<NULL>|0|<NULL>|UNKNOWN",
                  "odd|odd|01234567-89ab-cdef-0001-00020a0bffff|sdd|1000000|250000|1024||UNKNOWN",
              }));
    EXPECT_NE(log().find("(debug) vol-name[ignored]\n"), std::string::npos);
    EXPECT_NE(log().find("ksdb_volume_import() ==> 0"), std::string::npos);
}

TEST_F(VolumeTest, NoVolumesOrAFailedScanLeaveOnlyMedia) {
    use_fake_scan();
    ASSERT_EQ(ksdb_volume_import(h(), db()), 0);
    EXPECT_EQ(sql().column("SELECT id FROM _volume"), std::vector<std::string>{"media"});
    g_scan_result = -5;
    g_volumes = {volume("data", 1, 0, "sda")};
    sql().exec("DELETE FROM _volume");
    ASSERT_EQ(ksdb_volume_import(h(), db()), 0);
    EXPECT_EQ(sql().column("SELECT id FROM _volume"), std::vector<std::string>{"media"});
}

TEST_F(VolumeTest, FoldersWithShareSettingsAreTheVolumesOfADebugRoot) {
    mkdirs(at("/pool1/._share/docs"));
    mkdirs(at("/pool2/._share"));
    mkdirs(at("/etc"));  // no ._share: not a volume
    ASSERT_EQ(ksdb_volume_import(h(), db()), 0);
    EXPECT_EQ(sql().column("SELECT lv_name||' '||volume_health FROM _volume ORDER BY lv_name"),
              (std::vector<std::string>{"media UNKNOWN", "pool1 REDUNDANT", "pool2 REDUNDANT"}));
    EXPECT_EQ(sql().scalar("SELECT COUNT(DISTINCT uuid) FROM _volume WHERE uuid IS NOT NULL"), "2");
}

TEST_F(VolumeTest, MaintenanceLogRecordsStartsAndEnds) {
    ASSERT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sda", 0, nullptr, nullptr), 0);
    ASSERT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sda", 1, "ok", "no errors"), 0);
    auto rows = sql().rows(
        "SELECT operation,device,start_time>0,end_time>=start_time,result,details "
        "FROM `$vol_maint_log`");
    EXPECT_EQ(rows, std::vector<std::string>{"scrub|sda|1|1|ok|no errors"});

    // An end that was never started is kept with start time 0.
    ASSERT_EQ(ksdb_update_vol_maint_log(h(), db(), "balance", "data", 1, "failed", nullptr), 0);
    EXPECT_EQ(sql().rows("SELECT start_time,end_time>0,result,details FROM `$vol_maint_log` "
                         "WHERE operation='balance'"),
              std::vector<std::string>{"0|1|failed|<NULL>"});

    // Phases other than start and end do nothing.
    EXPECT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sda", 2, "x", "y"), 0);
    EXPECT_EQ(sql().scalar("SELECT COUNT(*) FROM `$vol_maint_log`"), "2");
    EXPECT_EQ(ksdb_update_vol_maint_log(h(), db(), nullptr, "sda", 0, nullptr, nullptr),
              KSDB_E_INVAL);
    EXPECT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", nullptr, 0, nullptr, nullptr),
              KSDB_E_INVAL);
}

TEST_F(VolumeTest, TwoStartsInOneSecondCollide) {
    time_t t0 = time(nullptr);
    while (time(nullptr) == t0) {
    }  // start at the beginning of a second
    ASSERT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sdb", 0, nullptr, nullptr), 0);
    EXPECT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sdb", 0, nullptr, nullptr),
              KSDB_E_DB);
    EXPECT_NE(log().find("Error adding new record to $vol_maint_log table\n"), std::string::npos);
}

TEST_F(VolumeTest, AttributeSetterRunsTheToolsOnThePathBelowTheRoot) {
    mkdirs(at("/data/docs"));
    put("/etc/fstab", "UUID=1 /data btrfs defaults,nodatasum 0 0\nUUID=2 /other btrfs defaults 0 0\n");
    use_fake_scan();
    g_volumes = {volume("data", 1, 0, "sda")};
    const std::string path = at("/data/docs");

    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", "compression", "on"), 0);
    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", "compression", "off"), 0);
    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", "bitrotprotection", "off"), 0);
    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", "bitrotprotection", "on"), 0);
    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", "refquota", "100M"), 0);
    EXPECT_EQ(ksdb_disable_share_quota(h(), "/data/docs"), 0);
    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", "refquota", "0"), 0);
    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "data/docs", "userquota@1001", "1048576"), 0);
    EXPECT_EQ(fake_calls(), (std::vector<FakeCall>{
                                {"chattr", "+c", path},
                                {"chattr", "-c", path},
                                {"chattr", "+C", path},
                                {"chattr", "-C", path},
                                {"btrfs", "quota", "enable", path},
                                {"btrfs", "qgroup", "limit", "100M", path},
                                {"btrfs", "quota", "enable", path},
                                {"btrfs", "qgroup", "limit", "none", path},
                                {"btrfs", "quota", "enable", path},
                                {"btrfs", "qgroup", "limit", "none", path},
                            }));
    // Protection on keeps the pool's data checksums on; the other pool's
    // line is untouched.
    EXPECT_EQ(get("/etc/fstab"),
              "UUID=1 /data btrfs defaults 0 0\nUUID=2 /other btrfs defaults 0 0\n");
    EXPECT_NE(log().find("\ntoggle_datasum pool[data] rval[0]"), std::string::npos);
}

TEST_F(VolumeTest, AFailingToolGivesEight) {
    mkdirs(at("/data/docs"));
    ScopedEnv fail("KSDB_FAKE_FAIL", "chattr");
    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", "compression", "on"), KSDB_E_SPAWN);
    EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", "bitrotprotection", "on"), KSDB_E_SPAWN);
}

TEST_F(VolumeTest, AttributeGetterReadsFlagsAndQuotaGroupFigures) {
    mkdirs(at("/data/docs/.snapshots/s1/snapshot"));
    put("/data/docs/.fake-qgroup", "5242880 4096 104857600");
    put("/data/docs/.snapshots/s1/snapshot/.fake-qgroup", "1024 2048 none");
    char *value = nullptr;
    ASSERT_EQ(ksdb_btrfs_get_attr(h(), "/data/docs", "used", &value), 0);
    EXPECT_STREQ(value, "5242880");
    ASSERT_EQ(ksdb_btrfs_get_attr(h(), "/data/docs", "refquota", &value), 0);
    EXPECT_STREQ(value, "104857600");
    ASSERT_EQ(ksdb_btrfs_get_attr(h(), "/data/docs", "usedbysnapshots", &value), 0);
    EXPECT_STREQ(value, "2048");
    // A plain folder: not compressed, copy-on-write on.
    ASSERT_EQ(ksdb_btrfs_get_attr(h(), "/data/docs", "compression", &value), 0);
    EXPECT_STREQ(value, "off");
    ASSERT_EQ(ksdb_btrfs_get_attr(h(), "/data/docs", "bitrotprotection", &value), 0);
    EXPECT_STREQ(value, "on");

    uint64_t used = 0;
    ASSERT_EQ(ksdb_get_subvolume_used_in_bytes(h(), db(), "/data/docs", &used), 0);
    EXPECT_EQ(used, 5242880u);

    put("/data/docs/.fake-qgroup", "8192 8192 none");
    ASSERT_EQ(ksdb_btrfs_get_attr(h(), "/data/docs", "refquota", &value), 0);
    EXPECT_STREQ(value, "none");

    // Removable media have none of these attributes; unknown names and
    // missing paths fail.
    mkdirs(at("/media/usb1"));
    EXPECT_NE(ksdb_btrfs_get_attr(h(), "/media/usb1", "used", &value), 0);
    EXPECT_NE(ksdb_btrfs_get_attr(h(), "/data/docs", "colour", &value), 0);
    EXPECT_NE(ksdb_btrfs_get_attr(h(), "/data/missing", "used", &value), 0);
    EXPECT_EQ(ksdb_get_subvolume_used_in_bytes(h(), db(), nullptr, &used), KSDB_E_INVAL);
    EXPECT_EQ(ksdb_get_subvolume_used_in_bytes(h(), db(), "/data/docs", nullptr), KSDB_E_INVAL);
}
