// The built-in platform set: commands, volume list, quota groups, snapshot
// paths, data checksums in fstab, the SNMP identifier, hardware names, and
// substitution of the set.
#include "tests/support/test_support.h"

#include "platform/platform.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

std::vector<std::string> dir_entries(const std::string &path) {
    std::vector<std::string> names;
    if (DIR *d = opendir(path.c_str())) {
        while (struct dirent *e = readdir(d))
            if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
                names.emplace_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Runs the test from a temporary folder, so that a command injected with a
// relative file name would leave that file there.
class InDir {
  public:
    explicit InDir(const std::string &dir) {
        char *cwd = getcwd(nullptr, 0);
        old_ = cwd ? cwd : "/";
        std::free(cwd);
        EXPECT_EQ(chdir(dir.c_str()), 0);
    }
    ~InDir() { EXPECT_EQ(chdir(old_.c_str()), 0); }

  private:
    std::string old_;
};

// Names that would run something if they reached a shell unquoted.
const char *const kHostileNames[] = {
    "a;touch pwned1", "$(touch pwned2)", "`touch pwned3`", "it's \"quoted\"",
    "line\ntouch pwned4", "x|touch pwned5&",
};

bool injected(const std::string &dir) {
    for (const std::string &e : dir_entries(dir))
        if (e.rfind("pwned", 0) == 0) return true;
    return false;
}

// ---- exec_cmd --------------------------------------------------------------------

TEST(PlatformExec, CapturesStandardOutput) {
    const char *argv[] = {"printf", "%s-%s", "hello", "world", nullptr};
    char out[64];
    EXPECT_EQ(exec_cmd(argv, out, sizeof out), 0);
    EXPECT_STREQ(out, "hello-world");
}

TEST(PlatformExec, TruncatesToTheBufferAndDrainsTheRest) {
    const char *small[] = {"printf", "abcdefghij", nullptr};
    char out[5];
    EXPECT_EQ(exec_cmd(small, out, sizeof out), 0);
    EXPECT_STREQ(out, "abcd");

    // Far more than a pipe holds: the program still runs to its end.
    const char *big[] = {"seq", "1", "300000", nullptr};
    char head[8];
    EXPECT_EQ(exec_cmd(big, head, sizeof head), 0);
    EXPECT_STREQ(head, "1\n2\n3\n4");

    EXPECT_EQ(exec_cmd(big, nullptr, 0), 0);
    char one[1] = {'x'};
    EXPECT_EQ(exec_cmd(small, one, sizeof one), 0);
    EXPECT_STREQ(one, "");
}

TEST(PlatformExec, ReportsExitStatusAndMissingProgram) {
    const char *fail3[] = {"sh", "-c", "echo partial; exit 3", nullptr};
    char out[64];
    EXPECT_EQ(exec_cmd(fail3, out, sizeof out), 3);
    EXPECT_STREQ(out, "partial\n");

    const char *falsy[] = {"false", nullptr};
    EXPECT_NE(exec_cmd(falsy, out, sizeof out), 0);

    const char *missing[] = {"ksdb-no-such-program", "x", nullptr};
    std::strcpy(out, "stale");
    EXPECT_EQ(exec_cmd(missing, out, sizeof out), -ENOENT);
    EXPECT_STREQ(out, "");

    const char *empty[] = {nullptr};
    EXPECT_EQ(exec_cmd(empty, out, sizeof out), -EINVAL);
}

TEST(PlatformExec, StandardInputIsEmpty) {
    const char *cat[] = {"cat", nullptr};
    char out[16];
    EXPECT_EQ(exec_cmd(cat, out, sizeof out), 0);
    EXPECT_STREQ(out, "");
}

TEST(PlatformExec, ArgumentsReachTheProgramUnchanged) {
    TempDir tmp;
    InDir in(tmp.path());
    for (const char *name : kHostileNames) {
        const char *argv[] = {"printf", "[%s]", name, nullptr};
        char out[128];
        EXPECT_EQ(exec_cmd(argv, out, sizeof out), 0);
        EXPECT_EQ(std::string(out), "[" + std::string(name) + "]");
    }
    EXPECT_FALSE(injected(tmp.path()));
}

// ---- volume_scan -------------------------------------------------------------------

// A volume list released on scope exit.
struct Volumes {
    ksdb_volume_list list{};
    ~Volumes() { free_volume(&list); }
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (int i = 0; i < list.count; ++i) out.emplace_back(list.volumes[i].name);
        return out;
    }
};

TEST(PlatformVolumes, FoldersWithAShareFolderAreVolumesUnderADebugRoot) {
    TempDir root;
    mkdirs(root / "vol2/._share");
    mkdirs(root / "vol1/._share/share1");
    mkdirs(root / "plain/data");         // no ._share: not a volume
    mkdirs(root / ".hidden/._share");    // hidden folder: not a volume
    write_file(root / "vol3", "a file"); // not a folder
    write_file(root / "vol4/._share", "a file, not a folder");

    Volumes v;
    ASSERT_EQ(volume_scan(root.path().c_str(), &v.list), 0);
    EXPECT_EQ(v.names(), (std::vector<std::string>{"vol1", "vol2"}));

    struct statvfs sv;
    ASSERT_EQ(statvfs((root / "vol1").c_str(), &sv), 0);
    const uint64_t total = static_cast<uint64_t>(sv.f_blocks) * sv.f_frsize / 1024;
    for (int i = 0; i < v.list.count; ++i) {
        const ksdb_volume_entry &e = v.list.volumes[i];
        EXPECT_EQ(e.status, 1) << e.name;
        EXPECT_EQ(e.flags, 0) << e.name;
        EXPECT_EQ(e.ndevices, 0) << e.name;
        // Same file system as the temporary folder; free space may move a
        // little between the two readings, the size does not.
        EXPECT_EQ(e.blk_total, total) << e.name;
        EXPECT_GT(e.blk_total, 0u);
        EXPECT_LE(e.blk_free, e.blk_total);
        // A version 8 UUID of the RFC 4122 variant.
        EXPECT_EQ(e.uuid[3] >> 12, 8) << e.name;
        EXPECT_EQ(e.uuid[4] >> 14, 2) << e.name;
    }
    EXPECT_NE(std::vector<uint16_t>(v.list.volumes[0].uuid, v.list.volumes[0].uuid + 8),
              std::vector<uint16_t>(v.list.volumes[1].uuid, v.list.volumes[1].uuid + 8));

    // The UUID follows the name: a second scan, through another spelling of
    // the root, gives the same words.
    Volumes again;
    ASSERT_EQ(volume_scan((root.path() + "//").c_str(), &again.list), 0);
    ASSERT_EQ(again.list.count, 2);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(std::vector<uint16_t>(v.list.volumes[i].uuid, v.list.volumes[i].uuid + 8),
                  std::vector<uint16_t>(again.list.volumes[i].uuid,
                                        again.list.volumes[i].uuid + 8));

    free_volume(&again.list);
    EXPECT_EQ(again.list.count, 0);
    EXPECT_EQ(again.list.volumes, nullptr);
}

TEST(PlatformVolumes, EmptyRootHasNoVolumes) {
    TempDir root;
    Volumes v;
    v.list.count = 7;
    EXPECT_EQ(volume_scan(root.path().c_str(), &v.list), 0);
    EXPECT_EQ(v.list.count, 0);
    EXPECT_EQ(v.list.volumes, nullptr);
    EXPECT_EQ(volume_scan(root.path().c_str(), nullptr), -EINVAL);
}

TEST(PlatformVolumes, AtMost256Volumes) {
    TempDir root;
    for (int i = 0; i < 260; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "v%03d", i);
        mkdirs(root / (std::string(name) + "/._share"));
    }
    Volumes v;
    ASSERT_EQ(volume_scan(root.path().c_str(), &v.list), 0);
    ASSERT_EQ(v.list.count, KSDB_MAX_VOLUMES);
    EXPECT_STREQ(v.list.volumes[0].name, "v000");
    EXPECT_STREQ(v.list.volumes[255].name, "v255");
}

TEST(PlatformVolumes, LiveScanListsOnlyTopLevelMounts) {
    Volumes v;
    ASSERT_EQ(volume_scan(nullptr, &v.list), 0);
    for (int i = 0; i < v.list.count; ++i) {
        const ksdb_volume_entry &e = v.list.volumes[i];
        EXPECT_NE(e.name[0], '\0');
        EXPECT_EQ(std::strchr(e.name, '/'), nullptr);
        EXPECT_GE(e.status, 1);
        EXPECT_LE(e.status, 3);
        EXPECT_GE(e.ndevices, 1);
    }
}

// ---- quota groups ----------------------------------------------------------------

class PlatformQgroup : public RootTest {};

TEST_F(PlatformQgroup, ParsesTheFiguresOfTheSubvolume) {
    mkdirs(at("/vol1/share1"));
    ScopedEnv figures("KSDB_FAKE_QGROUP", "1048576 524288 10485760");
    ksdb_qgroup_info info;
    std::memset(&info, 0x5a, sizeof info);
    ASSERT_EQ(btrfs_get_qgroup_info(at("/vol1/share1").c_str(), &info), 0);
    EXPECT_EQ(info.referenced, 1048576u);
    EXPECT_EQ(info.exclusive, 524288u);
    EXPECT_EQ(info.max_referenced, 10485760u);
    EXPECT_EQ(info.snapshots_used, 0u);
    EXPECT_STREQ(info.compressratio, "1.00x");
    EXPECT_STREQ(info.logbias, "");
    EXPECT_STREQ(info.origin, "");
    EXPECT_STREQ(info.sync, "");

    auto calls = fake_calls("btrfs");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0], (FakeCall{"btrfs", "qgroup", "show", "-r", "--raw", "-f",
                                  at("/vol1/share1")}));
}

TEST_F(PlatformQgroup, NoLimitReadsAsZero) {
    mkdirs(at("/vol1/share1"));
    ScopedEnv figures("KSDB_FAKE_QGROUP", "4096 4096 none");
    ksdb_qgroup_info info;
    ASSERT_EQ(btrfs_get_qgroup_info((at("/vol1/share1") + "/").c_str(), &info), 0);
    EXPECT_EQ(info.referenced, 4096u);
    EXPECT_EQ(info.max_referenced, 0u);
}

TEST_F(PlatformQgroup, SnapshotsAddTheirExclusiveBytes) {
    mkdirs(at("/vol1/share1/.snapshots/1/snapshot"));
    put("/vol1/share1/.snapshots/1/snapshot/.fake-qgroup", "100000 40000 none");
    mkdirs(at("/vol1/share1/.snapshots/2"));  // no snapshot folder inside: ignored
    mkdirs(at("/vol1/._share/share1/.snapshot/m_daily"));
    put("/vol1/._share/share1/.snapshot/m_daily/.fake-qgroup", "200000 60000 none");
    ScopedEnv figures("KSDB_FAKE_QGROUP", "900000 300000 none");

    ksdb_qgroup_info info;
    ASSERT_EQ(btrfs_get_qgroup_info(at("/vol1/share1").c_str(), &info), 0);
    EXPECT_EQ(info.referenced, 900000u);
    EXPECT_EQ(info.exclusive, 300000u);
    EXPECT_EQ(info.snapshots_used, 100000u);

    std::set<std::string> paths;
    for (const FakeCall &c : fake_calls("btrfs")) paths.insert(c.back());
    EXPECT_EQ(paths, (std::set<std::string>{at("/vol1/share1"),
                                            at("/vol1/share1/.snapshots/1/snapshot"),
                                            at("/vol1/._share/share1/.snapshot/m_daily")}));
}

TEST_F(PlatformQgroup, FailuresAreNegativeErrnos) {
    ksdb_qgroup_info info;
    EXPECT_EQ(btrfs_get_qgroup_info(at("/vol1/missing").c_str(), &info), -ENOENT);
    EXPECT_EQ(btrfs_get_qgroup_info("ksdb-no-such-volume/share", &info), -ENOENT);
    EXPECT_TRUE(fake_calls("btrfs").empty());

    mkdirs(at("/vol1/share1"));
    {
        ScopedEnv none("KSDB_FAKE_QGROUP", "-");  // no quota group in the output
        EXPECT_EQ(btrfs_get_qgroup_info(at("/vol1/share1").c_str(), &info), -ENOENT);
    }
    {
        ScopedEnv fail("KSDB_FAKE_FAIL", "btrfs");
        EXPECT_EQ(btrfs_get_qgroup_info(at("/vol1/share1").c_str(), &info), -EIO);
    }
    {
        ScopedEnv garbled("KSDB_FAKE_QGROUP", "12k 4k none");
        EXPECT_EQ(btrfs_get_qgroup_info(at("/vol1/share1").c_str(), &info), -EPROTO);
    }
    EXPECT_EQ(btrfs_get_qgroup_info(nullptr, &info), -EINVAL);
    EXPECT_EQ(fake_calls("btrfs").size(), 3u);
}

TEST_F(PlatformQgroup, HostileShareNamesAreOneArgument) {
    InDir in(tmp_.path());
    for (const char *name : kHostileNames) {
        clear_fake_calls();
        const std::string share = at("/vol1/") + name;
        mkdirs(share + "/.snapshots/s1/snapshot");
        ksdb_qgroup_info info;
        EXPECT_EQ(btrfs_get_qgroup_info(share.c_str(), &info), 0) << name;
        auto calls = fake_calls("btrfs");
        ASSERT_EQ(calls.size(), 2u) << name;
        EXPECT_EQ(calls[0].size(), 7u);
        EXPECT_EQ(calls[0].back(), share);
        EXPECT_EQ(calls[1].back(), share + "/.snapshots/s1/snapshot");
    }
    EXPECT_FALSE(injected(tmp_.path()));
    EXPECT_FALSE(injected(root()));
}

// ---- snapshot_get_path ------------------------------------------------------------

TEST(PlatformSnapshots, FindsTheSnapshotFolder) {
    TempDir root;
    const std::string share = root / "vol1/share1";
    mkdirs(share + "/.snapshots/7/snapshot");
    mkdirs(root / "vol1/._share/share1/.snapshot/m_daily");
    mkdirs(share + "/.snapshots/both/snapshot");
    mkdirs(root / "vol1/._share/share1/.snapshot/both");

    char *path = nullptr;
    ASSERT_EQ(snapshot_get_path(share.c_str(), "7", &path), 0);
    EXPECT_EQ(std::string(path), share + "/.snapshots/7/snapshot");
    std::free(path);

    ASSERT_EQ(snapshot_get_path((share + "/").c_str(), "m_daily", &path), 0);
    EXPECT_EQ(std::string(path), root / "vol1/._share/share1/.snapshot/m_daily");
    std::free(path);

    ASSERT_EQ(snapshot_get_path(share.c_str(), "both", &path), 0);
    EXPECT_EQ(std::string(path), share + "/.snapshots/both/snapshot");
    std::free(path);
}

TEST(PlatformSnapshots, MissingOrBadNames) {
    TempDir root;
    const std::string share = root / "vol1/share1";
    mkdirs(share + "/.snapshots/7");  // no snapshot folder inside
    mkdirs(root / "vol1/._share/share1/.snapshot");
    char *path = reinterpret_cast<char *>(0x1);
    EXPECT_EQ(snapshot_get_path(share.c_str(), "7", &path), -ENOENT);
    EXPECT_EQ(path, nullptr);
    EXPECT_EQ(snapshot_get_path(share.c_str(), "nothing", &path), -ENOENT);
    EXPECT_EQ(snapshot_get_path(share.c_str(), "..", &path), -EINVAL);
    EXPECT_EQ(snapshot_get_path(share.c_str(), "../../share1", &path), -EINVAL);
    EXPECT_EQ(snapshot_get_path(share.c_str(), "", &path), -EINVAL);
    EXPECT_EQ(snapshot_get_path(nullptr, "7", &path), -EINVAL);
    EXPECT_EQ(path, nullptr);
}

// ---- toggle_datasum -------------------------------------------------------------

const char kFstab[] =
    "# /etc/fstab: static file system information.\n"
    "UUID=1111 / ext4 errors=remount-ro 0 1\n"
    "/dev/sdb1\t/vol1\tbtrfs\tdefaults,noatime\t0\t0\n"
    "/dev/sdc1  /vol10  btrfs  defaults  0  0\n"
    "#/dev/sdd1 /vol1 btrfs defaults 0 0\n"
    "/dev/sde1 /vol2 btrfs nodatasum,compress=zstd 0 0\n"
    "/dev/sdf1 /vol3 btrfs nodatasum 0 0\n"
    "/dev/sdg1 /vol4 btrfs\n"
    "\n"
    "/dev/sdh1 /my\\040pool btrfs defaults 0 0";

std::string replaced(std::string text, const std::string &from, const std::string &to) {
    size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

class PlatformDatasum : public ::testing::Test {
  protected:
    PlatformDatasum() : fstab_(tmp_ / "fstab") {
        write_file(fstab_, kFstab);
        chmod(fstab_.c_str(), 0640);
    }
    std::string content() const { return read_file(fstab_); }
    TempDir tmp_;
    std::string fstab_;
};

TEST_F(PlatformDatasum, DisableAddsNodatasumAndEnableRemovesIt) {
    ASSERT_EQ(toggle_datasum(fstab_.c_str(), "vol1", 0), 0);
    const std::string disabled =
        replaced(kFstab, "/dev/sdb1\t/vol1\tbtrfs\tdefaults,noatime\t0\t0\n",
                 "/dev/sdb1\t/vol1\tbtrfs\tdefaults,noatime,nodatasum\t0\t0\n");
    EXPECT_EQ(content(), disabled);

    ASSERT_EQ(toggle_datasum(fstab_.c_str(), "vol1", 1), 0);
    EXPECT_EQ(content(), kFstab);

    struct stat st;
    ASSERT_EQ(stat(fstab_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(dir_entries(tmp_.path()), std::vector<std::string>{"fstab"});
}

TEST_F(PlatformDatasum, OptionListsAreEditedInPlace) {
    ASSERT_EQ(toggle_datasum(fstab_.c_str(), "vol2", 1), 0);
    std::string expected = replaced(kFstab, "/vol2 btrfs nodatasum,compress=zstd 0 0",
                                    "/vol2 btrfs compress=zstd 0 0");
    EXPECT_EQ(content(), expected);

    ASSERT_EQ(toggle_datasum(fstab_.c_str(), "vol3", 1), 0);
    expected = replaced(expected, "/vol3 btrfs nodatasum 0 0", "/vol3 btrfs defaults 0 0");
    EXPECT_EQ(content(), expected);

    ASSERT_EQ(toggle_datasum(fstab_.c_str(), "vol4", 0), 0);
    expected = replaced(expected, "/dev/sdg1 /vol4 btrfs\n", "/dev/sdg1 /vol4 btrfs\tnodatasum\n");
    EXPECT_EQ(content(), expected);

    // Escaped blank in the mount point; the last line has no newline.
    ASSERT_EQ(toggle_datasum(fstab_.c_str(), "my pool", 0), 0);
    expected = replaced(expected, "/my\\040pool btrfs defaults 0 0",
                        "/my\\040pool btrfs defaults,nodatasum 0 0");
    EXPECT_EQ(content(), expected);
}

TEST_F(PlatformDatasum, ALinkedFstabStaysALink) {
    mkdirs(tmp_ / "etc");
    const std::string link = tmp_ / "etc/fstab";
    ASSERT_EQ(symlink("../fstab", link.c_str()), 0);
    ASSERT_EQ(toggle_datasum(link.c_str(), "vol1", 0), 0);
    struct stat st;
    ASSERT_EQ(lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_NE(content().find("defaults,noatime,nodatasum"), std::string::npos);
    EXPECT_EQ(dir_entries(tmp_ / "etc"), std::vector<std::string>{"fstab"});
}

TEST_F(PlatformDatasum, AlreadySetLeavesTheFileAlone) {
    struct stat before;
    ASSERT_EQ(stat(fstab_.c_str(), &before), 0);
    EXPECT_EQ(toggle_datasum(fstab_.c_str(), "vol2", 0), 0);
    EXPECT_EQ(toggle_datasum(fstab_.c_str(), "vol10", 1), 0);
    struct stat after;
    ASSERT_EQ(stat(fstab_.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);  // not replaced
    EXPECT_EQ(content(), kFstab);
}

TEST_F(PlatformDatasum, UnknownPoolOrFileChangesNothing) {
    EXPECT_EQ(toggle_datasum(fstab_.c_str(), "vol9", 0), -ENOENT);
    EXPECT_EQ(toggle_datasum(fstab_.c_str(), "sdd1", 0), -ENOENT);
    EXPECT_EQ(toggle_datasum(fstab_.c_str(), "vol1/x", 0), -EINVAL);
    EXPECT_EQ(toggle_datasum(fstab_.c_str(), "", 0), -EINVAL);
    EXPECT_EQ(toggle_datasum((tmp_ / "missing").c_str(), "vol1", 0), -ENOENT);
    EXPECT_EQ(content(), kFstab);
    EXPECT_EQ(dir_entries(tmp_.path()), std::vector<std::string>{"fstab"});
}

// ---- SNMP identifier and hardware names --------------------------------------

TEST(PlatformIdentity, SysObjectId) {
    char buf[1024];
    ASSERT_EQ(getSysObjectID(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "1.3.6.1.4.1.8072.3.2.10");

    char small[23];  // one byte short of the identifier and its terminator
    EXPECT_NE(getSysObjectID(small, sizeof small), 0);
    char exact[24];
    EXPECT_EQ(getSysObjectID(exact, sizeof exact), 0);

    ksdb_platform_set_sys_object_id("1.3.6.1.4.1.99999.1");
    ASSERT_EQ(getSysObjectID(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "1.3.6.1.4.1.99999.1");
    ksdb_platform_set_sys_object_id(nullptr);
    ASSERT_EQ(getSysObjectID(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "1.3.6.1.4.1.8072.3.2.10");
}

TEST(PlatformIdentity, BuiltinHardwareTypeIsUnknown) {
    ksdb_sys_info info;
    ASSERT_EQ(get_sys_info(&info), 0);
    EXPECT_EQ(info.hw_type, 0u);
    EXPECT_EQ(ksdb::systype_name(0), nullptr);
    EXPECT_EQ(ksdb::systype_name(1), nullptr);
    EXPECT_EQ(ksdb::systype_name(UINT32_MAX), nullptr);
}

// ---- substitution ------------------------------------------------------------------

int g_fake_scans = 0;

int fake_volume_scan(const char *, ksdb_volume_list *list) {
    ++g_fake_scans;
    list->count = 1;
    list->volumes = static_cast<ksdb_volume_entry *>(std::calloc(1, sizeof(ksdb_volume_entry)));
    std::strcpy(list->volumes[0].name, "vendorvol");
    list->volumes[0].status = 3;
    return 0;
}

void fake_free_volume(ksdb_volume_list *list) {
    std::free(list->volumes);
    list->volumes = nullptr;
    list->count = -1;  // tells the test the vendor's release ran
}

const char *const kVendorTypes[] = {nullptr, "NX-200", nullptr, "NX-400"};

class PlatformSubstitution : public ::testing::Test {
  protected:
    ~PlatformSubstitution() override { ksdb_platform_set(nullptr); }
};

TEST_F(PlatformSubstitution, VendorMembersReplaceAndNullMembersFallBack) {
    ksdb_platform_ops ops{};
    ops.volume_scan = fake_volume_scan;
    ops.free_volume = fake_free_volume;
    ops.systype_str = kVendorTypes;
    ops.systype_count = 4;
    ksdb_platform_set(&ops);

    const ksdb_platform_ops *cur = ksdb_platform_current();
    const ksdb_platform_ops *builtin = ksdb_platform_builtin();
    EXPECT_EQ(cur->volume_scan, fake_volume_scan);
    EXPECT_EQ(cur->exec_cmd, builtin->exec_cmd);
    EXPECT_EQ(cur->btrfs_get_qgroup_info, builtin->btrfs_get_qgroup_info);
    EXPECT_EQ(cur->getSysObjectID, builtin->getSysObjectID);

    g_fake_scans = 0;
    ksdb_volume_list list{};
    ASSERT_EQ(volume_scan("/ignored", &list), 0);
    EXPECT_EQ(g_fake_scans, 1);
    ASSERT_EQ(list.count, 1);
    EXPECT_STREQ(list.volumes[0].name, "vendorvol");
    free_volume(&list);
    EXPECT_EQ(list.count, -1);

    // A member left NULL still works: the built-in one runs.
    const char *argv[] = {"printf", "ok", nullptr};
    char out[8];
    EXPECT_EQ(exec_cmd(argv, out, sizeof out), 0);
    EXPECT_STREQ(out, "ok");

    EXPECT_STREQ(ksdb::systype_name(1), "NX-200");
    EXPECT_STREQ(ksdb::systype_name(3), "NX-400");
    EXPECT_EQ(ksdb::systype_name(2), nullptr);
    EXPECT_EQ(ksdb::systype_name(4), nullptr);

    ksdb_platform_set(nullptr);
    cur = ksdb_platform_current();
    EXPECT_EQ(cur->volume_scan, builtin->volume_scan);
    EXPECT_EQ(cur->free_volume, builtin->free_volume);
    EXPECT_EQ(ksdb::systype_name(1), nullptr);
    TempDir root;
    mkdirs(root / "vol1/._share");
    Volumes v;
    ASSERT_EQ(volume_scan(root.path().c_str(), &v.list), 0);
    EXPECT_EQ(v.names(), std::vector<std::string>{"vol1"});
    EXPECT_EQ(g_fake_scans, 1);
}

}  // namespace
