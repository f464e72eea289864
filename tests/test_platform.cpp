// The built-in platform set and its substitution.
#include "tests/support/test_support.h"

#include "platform/platform.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>

using namespace ksdb_test;
using Names = std::vector<std::string>;

namespace {

std::string run(std::vector<const char *> argv, size_t size, int expected_rc = 0) {
    argv.push_back(nullptr);
    std::vector<char> out(size + 1, 'x');
    EXPECT_EQ(exec_cmd(argv.data(), size ? out.data() : nullptr, size), expected_rc) << argv[0];
    return size ? std::string(out.data()) : std::string();
}

}  // namespace

// Guards: output cut wrongly, a child blocked on a full pipe (arguments given to a
// shell: the case folder fs-attribute/shell-characters-in-name).
TEST(PlatformExec, CapturesTruncatesDrainsAndReportsStatus) {
    EXPECT_EQ(run({"printf", "%s-%s", "hello", "world"}, 64), "hello-world");
    EXPECT_EQ(run({"printf", "abcdefghij"}, 5), "abcd");
    // Far more than a pipe holds: the program still runs to its end.
    EXPECT_EQ(run({"seq", "1", "300000"}, 8), "1\n2\n3\n4");
    run({"seq", "1", "300000"}, 0);
    EXPECT_EQ(run({"printf", "x"}, 1), "");
    EXPECT_EQ(run({"sh", "-c", "echo partial; exit 3"}, 64, 3), "partial\n");
    EXPECT_EQ(run({"cat"}, 16), "") << "standard input is empty";
    EXPECT_EQ(run({"ksdb-no-such-program", "x"}, 16, -ENOENT), "");
    const char *empty[] = {nullptr};
    EXPECT_EQ(exec_cmd(empty, nullptr, 0), -EINVAL);
}

// Guards: folders taken for volumes wrongly, figures or uuids, the volume limit.
TEST(PlatformVolumes, FoldersWithAShareFolderAreVolumesUnderADebugRoot) {
    TempDir root;
    ksdb_volume_list v{}, again{};
    v.count = 7;
    EXPECT_EQ(volume_scan(root.path().c_str(), &v), 0);
    EXPECT_EQ(v.count, 0);
    free_volume(&v);
    EXPECT_EQ(volume_scan(root.path().c_str(), nullptr), -EINVAL);

    mkdirs(root / "vol2/._share");
    mkdirs(root / "vol1/._share/share1");
    mkdirs(root / "plain/data");         // no ._share: not a volume
    mkdirs(root / ".hidden/._share");    // hidden folder: not a volume
    write_file(root / "vol3", "a file");
    write_file(root / "vol4/._share", "a file, not a folder");
    ASSERT_EQ(volume_scan(root.path().c_str(), &v), 0);
    ASSERT_EQ(v.count, 2);
    struct statvfs sv;
    ASSERT_EQ(statvfs((root / "vol1").c_str(), &sv), 0);
    auto uuid = [](const ksdb_volume_entry &e) { return std::vector<uint16_t>(e.uuid, e.uuid + 8); };
    for (int i = 0; i < 2; ++i) {
        const ksdb_volume_entry &e = v.volumes[i];
        EXPECT_STREQ(e.name, i ? "vol2" : "vol1");
        EXPECT_EQ(e.status * 100 + e.flags * 10 + e.ndevices, 100) << e.name;
        EXPECT_EQ(e.blk_total, static_cast<uint64_t>(sv.f_blocks) * sv.f_frsize / 1024);
        EXPECT_LE(e.blk_free, e.blk_total);
        // A version 8 UUID of the RFC 4122 variant.
        EXPECT_EQ(e.uuid[3] >> 12, 8);
        EXPECT_EQ(e.uuid[4] >> 14, 2);
    }
    EXPECT_NE(uuid(v.volumes[0]), uuid(v.volumes[1]));
    // The UUID follows the name, whatever the spelling of the root.
    ASSERT_EQ(volume_scan((root.path() + "//").c_str(), &again), 0);
    EXPECT_EQ(uuid(again.volumes[1]), uuid(v.volumes[1]));
    free_volume(&again);
    free_volume(&v);
    EXPECT_EQ(again.volumes, nullptr);

    for (int i = 0; i < 260; ++i) mkdirs(root / ("v" + std::to_string(1000 + i) + "/._share"));
    ASSERT_EQ(volume_scan(root.path().c_str(), &v), 0);
    ASSERT_EQ(v.count, KSDB_MAX_VOLUMES);
    EXPECT_STREQ(v.volumes[255].name, "v1255");
    free_volume(&v);
}

class PlatformQgroup : public RootTest {};

// Guards: the quota-group figures, the snapshots counted, the status of each failure; a
// snapshot path outside the share or a missing one given.
TEST_F(PlatformQgroup, FiguresAndPathsOfTheSubvolumeAndItsSnapshots) {
    // The figures as "referenced exclusive max snapshots ratio+texts", or the error.
    auto info = [](const std::string &path) {
        ksdb_qgroup_info i;
        std::memset(&i, 0x5a, sizeof i);
        if (int rc = btrfs_get_qgroup_info(path.c_str(), &i)) return std::to_string(rc);
        return std::to_string(i.referenced) + " " + std::to_string(i.exclusive) + " " +
               std::to_string(i.max_referenced) + " " + std::to_string(i.snapshots_used) + " " +
               i.compressratio + i.logbias + i.origin + i.sync;
    };

    put("/vol1/share1/.snapshots/1/snapshot/.fake-qgroup", "100000 40000 none");
    mkdirs(at("/vol1/share1/.snapshots/2"));  // no snapshot folder inside: ignored
    put("/vol1/._share/share1/.snapshot/m_daily/.fake-qgroup", "200000 60000 none");
    ScopedEnv figures("KSDB_FAKE_QGROUP", "1048576 524288 10485760");
    // The snapshots' exclusive figures add up: 40000 + 60000.
    EXPECT_EQ(info(at("/vol1/share1")), "1048576 524288 10485760 100000 1.00x");

    ScopedEnv no_limit("KSDB_FAKE_QGROUP", "4096 4096 none");
    EXPECT_EQ(info(at("/vol1/share1") + "/"), "4096 4096 0 100000 1.00x");

    // The failures are negative errnos.
    clear_fake_calls();
    EXPECT_EQ(info(at("/vol1/missing")), std::to_string(-ENOENT));
    EXPECT_EQ(info("ksdb-no-such-volume/share"), std::to_string(-ENOENT));
    EXPECT_EQ(btrfs_get_qgroup_info(nullptr, nullptr), -EINVAL);
    EXPECT_TRUE(fake_calls("btrfs").empty());
    // No quota group in the output; unreadable figures; a failing command.
    ScopedEnv none("KSDB_FAKE_QGROUP", "-");
    EXPECT_EQ(info(at("/vol1/share1")), std::to_string(-ENOENT));
    ScopedEnv unreadable("KSDB_FAKE_QGROUP", "12k 4k none");
    EXPECT_EQ(info(at("/vol1/share1")), std::to_string(-EPROTO));
    ScopedEnv fail("KSDB_FAKE_FAIL", "btrfs");
    EXPECT_EQ(info(at("/vol1/share1")), std::to_string(-EIO));

    const std::string share = at("/vol1/share1");
    mkdirs(share + "/.snapshots/both/snapshot");
    mkdirs(at("/vol1/._share/share1/.snapshot/both"));
    auto path_of = [&](const std::string &s, const char *name) -> std::string {
        char *path = reinterpret_cast<char *>(0x1);
        int rc = snapshot_get_path(s.c_str(), name, &path);
        std::string out = rc == 0 ? std::string(path) : std::to_string(rc);
        if (rc == 0) std::free(path);
        else EXPECT_EQ(path, nullptr);
        return out;
    };
    EXPECT_EQ(path_of(share + "/", "m_daily"), at("/vol1/._share/share1/.snapshot/m_daily"));
    EXPECT_EQ(path_of(share, "both"), share + "/.snapshots/both/snapshot");
    for (const char *missing : {"2", "nothing"}) EXPECT_EQ(path_of(share, missing), "-2");
    for (const char *bad : {"..", "../../share1", ""}) EXPECT_EQ(path_of(share, bad), "-22");
}


// Guards: an option list edited wrongly, the file's mode lost, a temporary file left; the
// file replaced without a change; a link replaced by a file.
TEST(PlatformDatasum, OptionListsAreEditedInPlaceAndALinkStaysALink) {
    TempDir tmp;
    const std::string fstab = tmp / "fstab";
    // Every form of line the editor meets; the last line has no newline.
    const std::string original = read_file(KSDB_TEST_DATA_DIR "/fstab");
    std::string expected = original;
    write_file(fstab, original);
    chmod(fstab.c_str(), 0640);
    // Toggles and expects `from` to have become `to` in the file.
    auto toggle = [&](const char *pool, int enable, const std::string &from, const std::string &to) {
        ASSERT_EQ(toggle_datasum(fstab.c_str(), pool, enable), 0) << pool;
        size_t at = expected.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        expected.replace(at, from.size(), to);
        EXPECT_EQ(read_file(fstab), expected) << pool;
    };
    struct stat st;
    ASSERT_EQ(stat(fstab.c_str(), &st), 0);
    const ino_t first = st.st_ino;
    EXPECT_EQ(toggle_datasum(fstab.c_str(), "vol2", 0), 0);
    EXPECT_EQ(toggle_datasum(fstab.c_str(), "vol10", 1), 0);
    for (const char *pool : {"vol9", "sdd1"}) EXPECT_EQ(toggle_datasum(fstab.c_str(), pool, 0), -ENOENT);
    for (const char *pool : {"vol1/x", ""}) EXPECT_EQ(toggle_datasum(fstab.c_str(), pool, 0), -EINVAL);
    EXPECT_EQ(toggle_datasum((tmp / "missing").c_str(), "vol1", 0), -ENOENT);
    ASSERT_EQ(stat(fstab.c_str(), &st), 0);
    EXPECT_EQ(st.st_ino, first) << "not replaced";
    EXPECT_EQ(read_file(fstab), original);

    toggle("vol1", 0, "\t/vol1\tbtrfs\tdefaults,noatime\t", "\t/vol1\tbtrfs\tdefaults,noatime,nodatasum\t");
    toggle("vol1", 1, "defaults,noatime,nodatasum", "defaults,noatime");
    toggle("vol2", 1, "/vol2 btrfs nodatasum,compress=zstd 0 0", "/vol2 btrfs compress=zstd 0 0");
    toggle("vol3", 1, "/vol3 btrfs nodatasum 0 0", "/vol3 btrfs defaults 0 0");
    toggle("vol4", 0, "/dev/sdg1 /vol4 btrfs\n", "/dev/sdg1 /vol4 btrfs\tnodatasum\n");
    // Escaped blank in the mount point; the last line has no newline.
    toggle("my pool", 0, "/my\\040pool btrfs defaults 0 0", "/my\\040pool btrfs defaults,nodatasum 0 0");
    ASSERT_EQ(stat(fstab.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(list_dir(tmp.path()), Names{"fstab"});

    mkdirs(tmp / "etc");
    const std::string link = tmp / "etc/fstab";
    ASSERT_EQ(symlink("../fstab", link.c_str()), 0);
    ASSERT_EQ(toggle_datasum(link.c_str(), "vol1", 0), 0);
    ASSERT_EQ(lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_TRUE(contains(read_file(fstab), "defaults,noatime,nodatasum"));
}


// Guards: the identifier overflowing its buffer; the default not restored; a vendor member
// ignored, a NULL member not falling back, the built-in set not restored (a vendor's type
// names: the dictionary test).
TEST(PlatformIdentity, SysObjectIdHardwareTypeAndVendorMembers) {
    auto oid = [](size_t size) {
        std::vector<char> buf(size);
        return getSysObjectID(buf.data(), size) ? std::string("refused") : std::string(buf.data());
    };
    const std::string generic = "1.3.6.1.4.1.8072.3.2.10";
    EXPECT_EQ(oid(generic.size()), "refused") << "no room for the terminator";
    EXPECT_EQ(oid(generic.size() + 1), generic);
    ksdb_platform_set_sys_object_id("1.3.6.1.4.1.99999.1");
    EXPECT_EQ(oid(64), "1.3.6.1.4.1.99999.1");
    ksdb_platform_set_sys_object_id(nullptr);
    EXPECT_EQ(oid(64), generic);

    ksdb_sys_info info;
    ASSERT_EQ(get_sys_info(&info), 0);
    EXPECT_EQ(info.hw_type, 0u);
    EXPECT_EQ(ksdb::systype_name(UINT32_MAX), nullptr);  // beyond the table

    ksdb_platform_ops ops{};
    ops.getSysObjectID = [](char *buf, size_t size) {
        return std::snprintf(buf, size, "vendor") < 0 ? -1 : 0;
    };
    ksdb_platform_set(&ops);
    EXPECT_EQ(oid(64), "vendor");
    ASSERT_EQ(get_sys_info(&info), 0) << "a member left NULL is the built-in one";
    ksdb_platform_set(nullptr);
    EXPECT_EQ(oid(64), generic);
}
