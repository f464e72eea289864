// Volumes, the maintenance log and the share file-system attributes.
#include "core/ksdb_areas.h"
#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <algorithm>
#include <cstring>
#include <ctime>

using namespace ksdb_test;

namespace {

// A stand-in for the platform's volume scan: what the test sets here.
std::vector<ksdb_volume_entry> g_volumes;
int g_scan_result = 0;
std::string g_scan_root;

ksdb_volume_entry volume(const char *name, int status, uint8_t flags, const char *dev) {
    ksdb_volume_entry v{};
    std::snprintf(v.name, sizeof v.name, "%s", name);
    v.status = status;
    v.flags = flags;
    const uint16_t words[8] = {0x0123, 0x4567, 0x89ab, 0xcdef, 0x0001, 0x0002, 0x0a0b, 0xffff};
    std::memcpy(v.uuid, words, sizeof words);
    v.blk_total = 1000000;
    v.blk_free = 250000;
    v.ndevices = dev ? 1 : 0;
    std::snprintf(v.devices[0], sizeof v.devices[0], "%s", dev ? dev : "");
    return v;
}

class VolumeTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0); }
    void TearDown() override { ksdb_platform_set(nullptr); }
    void use_fake_scan() {
        ksdb_platform_ops ops{};
        ops.volume_scan = [](const char *root, ksdb_volume_list *list) {
            g_scan_root = root ? root : "<none>";
            if (g_scan_result != 0) return g_scan_result;
            list->count = static_cast<int>(g_volumes.size());
            list->volumes =
                static_cast<ksdb_volume_entry *>(calloc(g_volumes.size() + 1, sizeof *list->volumes));
            std::copy(g_volumes.begin(), g_volumes.end(), list->volumes);
            return 0;
        };
        ksdb_platform_set(&ops);
    }
};

}  // namespace

// Guards: volume rows, health words or the media pseudo-volume; the maintenance
// log's starts, ends and collisions.
TEST_F(VolumeTest, ImportRecordsScannedVolumesAndTheMediaPseudoVolumeAndTheMaintenanceLog) {
    use_fake_scan();
    g_volumes = {volume("data", 1, 0, "sda3"), volume("ignored", 1, KSDB_VOLUME_IGNORED, "sdc"),
                 volume("backup", 3, 0, nullptr), volume("odd", 9, 0, "sdd")};
    // The category also imports the accounts, which need their files.
    for (const char *f : {"/etc/passwd", "/etc/shadow", "/etc/group"}) put(f, "");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_VOLUME), 0);
    EXPECT_EQ(g_scan_root, root());
    const std::string uuid = "|01234567-89ab-cdef-0001-00020a0bffff|";
    EXPECT_EQ(sql().rows("SELECT id,lv_name,uuid,devname,blk_total,blk_free,blk_size,zfs_type,"
                         "volume_health FROM _volume ORDER BY lv_name"),
              (std::vector<std::string>{
                  "backup|backup" + uuid + "|1000000|250000|1024||DEGRADED",
                  "data|data" + uuid + "sda3|1000000|250000|1024||REDUNDANT",
                  "media|media|<NULL>|<NULL>|<NULL>|<NULL>|0|<NULL>|UNKNOWN",
                  "odd|odd" + uuid + "sdd|1000000|250000|1024||UNKNOWN",
              }));

    // A failed scan leaves only the pseudo-volume.
    g_scan_result = -5;
    sql().exec("DELETE FROM _volume");
    ASSERT_EQ(ksdb_volume_import(h(), db()), 0);
    EXPECT_EQ(sql().column("SELECT id FROM _volume"), std::vector<std::string>{"media"});
    g_scan_result = 0;

    // The maintenance log records starts and ends.
    ASSERT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sda", 0, nullptr, nullptr), 0);
    ASSERT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sda", 1, "ok", "no errors"), 0);
    // An end that was never started is kept with start time 0.
    ASSERT_EQ(ksdb_update_vol_maint_log(h(), db(), "balance", "data", 1, "failed", nullptr), 0);
    // Phases other than start and end do nothing; a missing name is refused.
    EXPECT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sda", 2, "x", "y"), 0);
    EXPECT_EQ(ksdb_update_vol_maint_log(h(), db(), nullptr, "sda", 0, nullptr, nullptr), KSDB_E_INVAL);
    EXPECT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", nullptr, 0, nullptr, nullptr), KSDB_E_INVAL);
    EXPECT_EQ(sql().rows("SELECT operation,device,start_time>0,end_time>=start_time,result,details "
                         "FROM `$vol_maint_log` ORDER BY operation"),
              (std::vector<std::string>{"balance|data|0|1|failed|<NULL>", "scrub|sda|1|1|ok|no errors"}));

    // Two starts in one second collide.
    time_t t0 = time(nullptr);
    while (time(nullptr) == t0) {
    }
    ASSERT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sdb", 0, nullptr, nullptr), 0);
    EXPECT_EQ(ksdb_update_vol_maint_log(h(), db(), "scrub", "sdb", 0, nullptr, nullptr), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "Error adding new record to $vol_maint_log table\n"));
}

// Guards: attribute commands, fstab checksums and the attributes read back.
TEST_F(VolumeTest, AttributesAreSetWithTheToolsBelowTheRootAndReadFromFlagsAndQuotaGroups) {
    mkdirs(at("/data/docs"));
    put("/etc/fstab", "UUID=1 /data btrfs defaults,nodatasum 0 0\nUUID=2 /other btrfs defaults 0 0\n");
    use_fake_scan();
    g_volumes = {volume("data", 1, 0, "sda")};
    const std::string path = at("/data/docs");

    // The flags and quota words of each attribute: the fs-attribute cases.
    for (auto [name, value] : std::vector<std::pair<const char *, const char *>>{
             {"bitrotprotection", "on"}, {"refquota", "0"}, {"userquota@1001", "1"}})
        EXPECT_EQ(ksdb_btrfs_set_attr(h(), "/data/docs", name, value), 0) << name;
    EXPECT_EQ(ksdb_disable_share_quota(h(), "/data/docs"), 0);
    const FakeCall enable{"btrfs", "quota", "enable", path};
    const FakeCall unlimited{"btrfs", "qgroup", "limit", "none", path};
    EXPECT_EQ(fake_calls(),
              (std::vector<FakeCall>{{"chattr", "-C", path}, enable, unlimited, enable, unlimited}));
    // Protection on keeps the pool's data checksums on; the other pool's
    // line is untouched.
    EXPECT_EQ(get("/etc/fstab"),
              "UUID=1 /data btrfs defaults 0 0\nUUID=2 /other btrfs defaults 0 0\n");

    put("/data/docs/.fake-qgroup", "5242880 4096 104857600");
    put("/data/docs/.snapshots/s1/snapshot/.fake-qgroup", "1024 2048 none");
    auto attr = [&](const char *path, const char *name) -> std::string {
        char *value = nullptr;
        int rc = ksdb_btrfs_get_attr(h(), path, name, &value);
        return rc ? "rc " + std::to_string(rc) : value;
    };
    // A plain folder is not compressed and copy-on-write; removable media
    // have none of these attributes; unknown names and missing paths fail.
    mkdirs(at("/media/usb1"));
    const char *const kRead[][3] = {
        {"/data/docs", "used", "5242880"},         {"/data/docs", "refquota", "104857600"},
        {"/data/docs", "usedbysnapshots", "2048"}, {"/data/docs", "compression", "off"},
        {"/data/docs", "bitrotprotection", "on"},  {"/media/usb1", "used", "rc 4"},
        {"/data/docs", "colour", "rc 4"},          {"/data/missing", "used", "rc 9"}};
    for (const auto &[where, name, want] : kRead) EXPECT_EQ(attr(where, name), want) << where << " " << name;

    put("/data/docs/.fake-qgroup", "8192 8192 none");
    EXPECT_EQ(attr("/data/docs", "refquota"), "none");
    // The used bytes read back: SnapshotScanTest; the refusals here.
    uint64_t used = 0;
    EXPECT_EQ(ksdb_get_subvolume_used_in_bytes(h(), db(), nullptr, &used), KSDB_E_INVAL);
    EXPECT_EQ(ksdb_get_subvolume_used_in_bytes(h(), db(), "/data/docs", nullptr), KSDB_E_INVAL);
}
