// The managed-file layer: the one writer (also on a full file system), the
// readers, the C temporary-file pair, the mover, the share folders.
#define KSDB_MODULE "test_file_utils"
#include "util/ksdb_file_utils.h"

#include "tests/support/test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>

using namespace ksdb_test;

namespace {

struct stat stat_of(const std::string &path) {
    struct stat st {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return st;
}

unsigned mode_of(const std::string &path) { return stat_of(path).st_mode & 07777; }

// "<uid>:<gid> <mode>" of a path, not following a link.
std::string owner_mode(const std::string &path) {
    const struct stat st = stat_of(path);
    return ksdb::strprintf("%u:%u %04o", st.st_uid, st.st_gid, st.st_mode & 07777);
}

using Names = std::vector<std::string>;

// Writes a temporary file the way a C caller does and returns its path.
std::string make_tmp(ksdb_handle *h, const ksdb_file_spec &spec, const std::string &content) {
    char *tmp = nullptr;
    FILE *f = ksdb_file_open_tempfile(h, &spec, &tmp);
    EXPECT_NE(f, nullptr);
    if (!f) return tmp ? tmp : "";
    std::fwrite(content.data(), 1, content.size(), f);
    std::fclose(f);
    return tmp;
}

// What the observer was told while installed.
struct Seen {
    Names file;                 // "<phase> <status> <tmp content>" of the old member
    std::vector<int> outcomes;  // file_done: the outcome, or -1 for a failure
    Seen() {
        ksdb_observer obs{};
        obs.file = [](void *arg, const char *, const char *tmp, int phase, int status) {
            static_cast<Seen *>(arg)->file.push_back(std::to_string(phase) + " " + std::to_string(status) +
                                                     " " + (exists(tmp) ? read_file(tmp) : "<none>"));
        };
        obs.file_done = [](void *arg, const char *, int outcome, int status) {
            static_cast<Seen *>(arg)->outcomes.push_back(status == 0 ? outcome : -1);
        };
        obs.arg = this;
        ksdb_set_observer(&obs);
    }
    ~Seen() { ksdb_set_observer(nullptr); }
};

// The letters of the next temporary names for the scope of the object: "AAAAAA", "BBBBBB", ...
struct ScriptedLetters {
    static inline int next = 0;
    ksdb::TempLetters previous =
        ksdb::set_temp_letters([](char out[6]) { std::memset(out, 'A' + next++, 6); });
    ScriptedLetters() { next = 0; }
    ~ScriptedLetters() { ksdb::set_temp_letters(previous); }
};

class FileUtilsTest : public RootTest {
  protected:
    // Commits one file the way an export does: in a set, so in a batch.
    int commit(const std::string &live, const std::string &content) {
        ksdb::ManagedFileSet set(h());
        set.add(live.c_str()).write(content);
        return set.commit();
    }
};

// Guards: a bounded load reading on, trailing NULs kept, a link to a file refused;
// writing or appending through a link; a reader taking or blocking on a FIFO, folder,
// device or file beyond the limit.
TEST_F(FileUtilsTest, ReadersTakeRegularFilesOnlyNeverBlockAndNeverWriteThroughLinks) {
    alarm(10);
    put("/etc/ten", "0123456789");
    put("/etc/nuls", std::string("a\0b\0\0", 5));
    put("/etc/big", "x\n");
    ASSERT_EQ(truncate(at("/etc/big").c_str(), KSDB_FILE_READ_LIMIT + 1), 0);  // sparse: no disk used
    ASSERT_EQ(symlink(at("/etc/ten").c_str(), at("/etc/link").c_str()), 0);
    // What a load of at most `max` bytes (0: all) gives, with the NUL after it; a link
    // to a regular file reads like the file, a bounded load of a large file is allowed.
    const std::tuple<const char *, size_t, std::string> loads[] = {
        {"/etc/ten", 4, std::string("0123\0", 5)}, {"/etc/ten", 0, std::string("0123456789\0", 11)},
        {"/etc/nuls", 0, std::string("a\0b\0", 4)}, {"/etc/link", 0, std::string("0123456789\0", 11)},
        {"/etc/big", 2, std::string("x\n\0", 3)}};
    for (const auto &[live, max, whole] : loads) {
        size_t len = 99;
        const char *buf = ksdb_file_load(h(), live, max, &len);
        ASSERT_NE(buf, nullptr) << live;
        EXPECT_EQ(std::string(buf, len + 1), whole) << live << " " << max;
    }
    FILE *f = ksdb_file_open(h(), "/etc/link", "r");
    ASSERT_NE(f, nullptr);
    std::fclose(f);
    EXPECT_EQ(ksdb_file_open(h(), "/etc/link", "w"), nullptr);
    EXPECT_EQ(ksdb_file_open(h(), "/etc/link", "a"), nullptr);
    EXPECT_EQ(get("/etc/ten"), "0123456789");

    mkdirs(at("/etc/dir"));
    ASSERT_EQ(mkfifo(at("/etc/fifo").c_str(), 0644), 0);
    ASSERT_EQ(symlink("/dev/zero", at("/etc/device").c_str()), 0);
    auto ignore = [](void *, const char *, const char *, const char *) { return 1; };
    for (const char *live : {"/etc/dir", "/etc/fifo", "/etc/device", "/etc/big"}) {
        const std::string real = at(live);
        size_t len = 99;
        EXPECT_EQ(ksdb_file_load(h(), live, 0, &len), nullptr) << live;
        EXPECT_EQ(len, 0u);
        EXPECT_EQ(ksdb_file_open(h(), live, "r"), nullptr) << live;
        EXPECT_FALSE(ksdb::load_file(h(), live)) << live;
        ksdb::ConfFile conf(h(), live);
        EXPECT_EQ(conf.status(), KSDB_E_FILE) << live;
        EXPECT_FALSE(conf.missing()) << live;
        EXPECT_EQ(ini_parse_file(real.c_str(), ignore, nullptr), -1) << live;
        char line[16] = "junk";
        EXPECT_EQ(ksdb_file_get_one_line(real.c_str(), line, sizeof line), -1) << live;
        EXPECT_STREQ(line, "");
    }
    EXPECT_TRUE(contains(log(), "<" + at("/etc/fifo") + "> is not regular file. mode=10644\n")) << log();
    EXPECT_TRUE(contains(log(), "<" + at("/etc/big") + "> is too large (33554433 bytes, at most 33554432 "
                                "are read)\n")) << log();

    ASSERT_EQ(rename(at("/etc/fifo").c_str(), at("/etc/hostname").c_str()), 0);
    EXPECT_EQ(ksdb_get_hostname(h()), nullptr);
    alarm(0);
}

// Guards: a new, unchanged, mode-only, owner-only or changed target handled or reported
// wrongly in a batch (an unchanged target rewritten; another mode or owner missed).
TEST_F(FileUtilsTest, CommitComparesBeforeReplacing) {
    const std::string live = "/etc/exports", target = at(live), bak = target + ".bak";
    Seen seen;
    ASSERT_EQ(commit(live, "one\n"), 0);

    // The same content, then another mode only, then another owner only: nothing is
    // written, the mode and owner are fixed in place.
    const struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, target.c_str(), old, AT_SYMLINK_NOFOLLOW), 0);
    const ino_t first = stat_of(target).st_ino;
    for (int step = 0; step < 3; ++step) {
        ASSERT_EQ(step == 1 ? chmod(target.c_str(), 0666) : step == 2 ? chown(target.c_str(), 1, 1) : 0, 0);
        ASSERT_EQ(commit(live, "one\n"), 0);
        const struct stat st = stat_of(target);
        EXPECT_EQ(std::to_string(st.st_ino) + " " + std::to_string(st.st_mtime) + " " + owner_mode(target),
                  std::to_string(first) + " 1000000000 98:98 0644") << step;
    }
    EXPECT_FALSE(exists(bak));

    // New content: a new file; the old one stays as the backup, itself.
    ASSERT_EQ(commit(live, "two\n"), 0);
    EXPECT_EQ(read_file(target), "two\n");
    EXPECT_EQ(read_file(bak), "one\n");
    EXPECT_EQ(stat_of(bak).st_ino, first);
    EXPECT_EQ(list_dir(at("/etc")), (Names{"exports", "exports.bak"}));
    EXPECT_EQ(list_dir(at("/tmp")), Names{});

    EXPECT_EQ(seen.outcomes, (std::vector<int>{KSDB_FILE_NEW, KSDB_FILE_UNCHANGED, KSDB_FILE_FIXED,
                                               KSDB_FILE_FIXED, KSDB_FILE_CHANGED}));
    // The old member sees the new content before each commit, and the status after.
    EXPECT_EQ(seen.file, (Names{"0 0 one\n", "1 0 <none>", "0 0 one\n", "1 0 one\n", "0 0 one\n",
                                "1 0 one\n", "0 0 one\n", "1 0 one\n", "0 0 two\n", "1 0 <none>"}));
}

// Guards: the writer following a link at the target (even to the same content), the
// backup or a temporary name.
TEST_F(FileUtilsTest, LinksAreNeverFollowed) {
    const std::string victim = tmp_ / "victim";
    write_file(victim, "victim\n");
    // At the target, even to the very content, owner and mode: replaced by a file.
    ASSERT_EQ(chown(victim.c_str(), 98, 98), 0);
    mkdirs(at("/etc"));
    ASSERT_EQ(symlink(victim.c_str(), at("/etc/exports").c_str()), 0);
    ASSERT_EQ(commit("/etc/exports", "victim\n"), 0);
    EXPECT_TRUE(S_ISREG(stat_of(at("/etc/exports")).st_mode));
    put("/etc/exports", "one\n");
    // At the backup's name.
    ASSERT_EQ(symlink(victim.c_str(), at("/etc/exports.bak").c_str()), 0);
    ASSERT_EQ(commit("/etc/exports", "two\n"), 0);
    EXPECT_EQ(get("/etc/exports.bak"), "one\n");
    // At the temporary name the writer tries first.
    const std::string planted = at("/etc/.exports.ksdb-AAAAAA");
    ASSERT_EQ(symlink((tmp_ / "made").c_str(), planted.c_str()), 0);
    ScriptedLetters letters;
    ASSERT_EQ(commit("/etc/exports", "three\n"), 0);
    EXPECT_EQ(get("/etc/exports"), "three\n");
    EXPECT_TRUE(S_ISLNK(stat_of(planted).st_mode));
    EXPECT_FALSE(exists(tmp_ / "made"));
    EXPECT_EQ(read_file(victim), "victim\n");
    // The one-line writer goes the same way.
    ASSERT_EQ(symlink(victim.c_str(), (tmp_ / "one").c_str()), 0);
    EXPECT_EQ(ksdb_file_put_one_line((tmp_ / "one").c_str(), "yes"), 0);
    EXPECT_EQ(read_file(tmp_ / "one"), "yes\n");
    EXPECT_EQ(read_file(victim), "victim\n");
}

// Guards: a descriptor held per uncommitted file; a failing set writing on past the failure.
TEST_F(FileUtilsTest, ManagedFilesTouchTheDiskOnlyInCommit) {
    const size_t fds = list_dir("/proc/self/fd").size();
    {
        ksdb::ManagedFileSet set(h());
        for (int i = 0; i < 2000; ++i) {
            const std::string live = "/vol1/._share/s" + std::to_string(i) + "/samba.conf";
            set.add(ksdb_file_spec{live.c_str(), 98, 98, 0644}).printf("share %d\n", i);
        }
        EXPECT_EQ(list_dir("/proc/self/fd").size(), fds);
        EXPECT_FALSE(exists(at("/vol1")));
        // Dropped without a commit: nothing written.
    }
    EXPECT_FALSE(exists(at("/vol1")));
    EXPECT_EQ(list_dir(at("/tmp")), Names{});

    put("/etc/b", "old b\n");
    put("/blocked", "a file where a folder would be\n");
    ksdb::ManagedFileSet set(h());
    set.add("/etc/a").write("new a\n");
    set.add("/blocked/x.conf").write("x\n");
    set.add("/etc/b").write("new b\n");
    EXPECT_EQ(set.commit(), KSDB_E_FILE);
    EXPECT_EQ(get("/etc/a"), "new a\n");
    EXPECT_EQ(get("/etc/b"), "old b\n");
    EXPECT_EQ(set.commit(), KSDB_E_FILE);  // the rest stays abandoned
    EXPECT_EQ(get("/etc/b"), "old b\n");
    EXPECT_TRUE(contains(log(), "Cannot open temporary file in " + at("/blocked"))) << log();
}

// Guards: a full file system losing the old target or leaving a temporary file (writer and C pair).
TEST_F(FileUtilsTest, FullFileSystemKeepsTheOldTarget) {
    ScopedTmpfs small(at("/etc"), 64 * 1024);
    if (!small.ok()) GTEST_SKIP() << small.why();
    put("/etc/exports", "old\n");
    const std::string big(256 * 1024, 'x');
    EXPECT_EQ(commit("/etc/exports", big), KSDB_E_FILE);
    EXPECT_EQ(get("/etc/exports"), "old\n");
    EXPECT_EQ(list_dir(at("/etc")), Names{"exports"});
    EXPECT_TRUE(contains(log(), "Cannot write " + at("/etc/.exports.ksdb-"))) << log();

    ksdb_file_spec spec{"/etc/exports", 98, 98, 0644};
    const std::string tmp = make_tmp(h(), spec, big);
    EXPECT_EQ(ksdb_file_update(h(), &spec, tmp.c_str()), KSDB_E_FILE);
    EXPECT_EQ(get("/etc/exports"), "old\n");
    EXPECT_EQ(read_file(tmp), big);
    EXPECT_EQ(list_dir(at("/etc")), Names{"exports"});
}

// Guards: the C pair bypassing the writer (owner, mode, backup, clean-up); a temporary
// name taken over a planted link or file, readable by others.
TEST_F(FileUtilsTest, CPairMakesPrivateTemporaryFilesAndPutsThemInPlaceThroughTheWriter) {
    ksdb_file_spec spec{"/etc/quillfold/samba/Shares.conf", 98, 98, 0600};
    const std::string target = at("/etc/quillfold/samba/Shares.conf");
    for (const char *content : {"[s1]\n", "[s2]\n"}) {
        ASSERT_EQ(ksdb_file_update(h(), &spec, make_tmp(h(), spec, content).c_str()), 0);
        EXPECT_EQ(read_file(target), content);
        EXPECT_EQ(owner_mode(target), "98:98 0600");
    }
    EXPECT_EQ(mode_of(at("/etc/quillfold/samba")), 0755u);
    EXPECT_TRUE(contains(log(), "Update " + target + "\n")) << log();
    EXPECT_EQ(read_file(target + ".bak"), "[s1]\n");
    EXPECT_EQ(list_dir(at("/etc/quillfold/samba")),
              (Names{"Shares.conf", "Shares.conf.bak"}));
    EXPECT_EQ(list_dir(at("/tmp")), Names{});

    // Nothing to put in place.
    EXPECT_EQ(ksdb_file_update(h(), &spec, at("/tmp/gone").c_str()), 0);
    EXPECT_TRUE(contains(log(), "Skipping update of non-existent " + at("/tmp/gone") + "\n"));
    EXPECT_EQ(read_file(target), "[s2]\n");

    // Names already taken, by a link and by a file, are given up.
    const std::string victim = tmp_ / "victim";
    ASSERT_EQ(symlink(victim.c_str(), at("/tmp/Shares.conf.AAAAAA").c_str()), 0);
    write_file(at("/tmp/Shares.conf.BBBBBB"), "planted");
    ScriptedLetters letters;
    mode_t old_umask = umask(0);
    std::string tmp = make_tmp(h(), spec, "");
    umask(old_umask);
    EXPECT_EQ(tmp, at("/tmp/Shares.conf.CCCCCC"));
    EXPECT_EQ(mode_of(tmp), 0600u);
    EXPECT_FALSE(exists(victim));
    EXPECT_EQ(read_file(at("/tmp/Shares.conf.BBBBBB")), "planted");

    // A fresh root without its /tmp gets one.
    const std::string other = tmp_ / "other";
    mkdirs(other);
    Handle fresh({nullptr, 0, nullptr, other.c_str()});
    tmp = make_tmp(fresh, spec, "");
    EXPECT_EQ(tmp.rfind(other + "/tmp/Shares.conf.", 0), 0u) << tmp;
}

// Guards: the mover's status for a missing source, target folder, folder or socket; a
// move across file systems losing times, owner, mode or the source.
TEST(CopyFile, GivesItsNegativeCodesAndMovesAcrossFileSystemsKeepingTimesOwnerModeAndTheOldTail) {
    TempDir dir;
    write_file(dir / "src", "S");
    mkdirs(dir / "folder/inner");
    ASSERT_EQ(mknod((dir / "sock").c_str(), S_IFSOCK | 0644, 0), 0);
    for (auto [from, to, rc] : std::vector<std::tuple<const char *, const char *, int>>{
             {"none", "x", -1}, {"src", "no/such", -ENOENT}, {"src", "folder", -12}, {"sock", "folder", -11}})
        EXPECT_EQ(ksdb::_copy_file((dir / from).c_str(), (dir / to).c_str()), rc) << from << " to " << to;
    EXPECT_EQ(read_file(dir / "src"), "S");

    ScopedTmpfs other(dir / "other", 1 << 20);
    if (!other.ok()) GTEST_SKIP() << other.why();
    std::string src = dir / "other/src", dst = dir / "dst";
    write_file(src, "NEW");
    write_file(dst, "old content longer");
    ASSERT_EQ(chown(src.c_str(), 98, 3), 0);
    ASSERT_EQ(chmod(src.c_str(), 0640), 0);
    struct timespec times[2] = {{1000000000, 0}, {1200000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, src.c_str(), times, 0), 0);

    ASSERT_EQ(ksdb::_copy_file(src.c_str(), dst.c_str()), 0);
    EXPECT_FALSE(exists(src));
    EXPECT_EQ(owner_mode(dst), "98:3 0640");
    EXPECT_EQ(stat_of(dst).st_atime, 1000000000);  // before the file is read
    EXPECT_EQ(stat_of(dst).st_mtime, 1200000000);
    EXPECT_EQ(read_file(dst), "NEW content longer");  // not truncated
}

// Guards: a pattern matching in a subfolder, a path matching by prefix, the wrong owner or
// mode; share folders made outside the volume, the subvolume made twice.
TEST_F(FileUtilsTest, SpecsMatchWholePathsAndShareSpecsMakeTheirFoldersBelowTheRoot) {
    for (auto [path, found] : std::vector<std::pair<const char *, const char *>>{
             {"/etc/shadow", "1 0 0 0400"}, {"/etc/avahi/services/afp.service", "1 0 0 0644"},
             {"/etc/avahi/services/old/afp.service", "0 0 0 0644"}, {"/etc/shadow-", "0 0 0 0644"}}) {
        ksdb_file_spec spec{"x", 7, 7, 07777};
        const int rc = ksdb_file_spec_lookup(path, &spec);
        EXPECT_EQ(spec.path, path);
        EXPECT_EQ(ksdb::strprintf("%d %d %d %04o", rc, spec.uid, spec.gid, spec.mode), found) << path;
    }
    mkdirs(at("/vol1"));
    ksdb_file_spec spec{};
    ASSERT_EQ(ksdb_share_conf_spec(h(), "vol1", "s1", "samba", &spec), 0);
    EXPECT_EQ(ksdb::strprintf("%s %d %d %04o", spec.path, spec.uid, spec.gid, spec.mode),
              "/vol1/._share/s1/samba.conf 98 98 0644");
    EXPECT_EQ(mode_of(at("/vol1/._share")), 0755u);
    EXPECT_TRUE(S_ISDIR(stat_of(at("/vol1/._share/s1")).st_mode));
    EXPECT_EQ(fake_calls(), (std::vector<FakeCall>{
                                {"btrfs", "subvolume", "create", at("/vol1/._share")}}));
    // The subvolume exists now: a second share only gets its folder.
    clear_fake_calls();
    ASSERT_EQ(ksdb_share_conf_spec(h(), "vol1", "s2", "nfs", &spec), 0);
    EXPECT_TRUE(fake_calls().empty());

    // Failures: the tool fails, names climb out of the volume.
    ScopedEnv fail("KSDB_FAKE_FAIL", "btrfs");
    EXPECT_EQ(ksdb_share_conf_spec(h(), "vol2", "s1", "samba", &spec), -1);
    clear_fake_calls();
    const char *const bad[][3] = {
        {"../out", "s1", "samba"}, {"vol1", "..", "samba"}, {"vol1", "s1", "../../x"}, {"", "s1", "samba"}};
    for (const auto &b : bad)
        EXPECT_EQ(ksdb_share_conf_spec(h(), b[0], b[1], b[2], &spec), -1) << b[0] << " " << b[1];
    EXPECT_TRUE(fake_calls().empty());
    EXPECT_FALSE(exists(tmp_ / "out"));
}

using Found = std::vector<std::pair<std::string, std::string>>;

int g_collect_rc = 0;  // what each call of collect() returns

int collect(ksdb_handle *, sqlite3 *, const char *volume, const char *subvolume, void *arg) {
    static_cast<Found *>(arg)->emplace_back(volume, subvolume);
    return g_collect_rc;
}

// Guards: subvolume names cut at a blank or a line end.
TEST(ShareEnumerator, SubvolumeNamesAreTakenWhole) {
    EXPECT_EQ(ksdb::parse_subvolume_list(read_file(KSDB_TEST_DATA_DIR "/btrfs-subvolume-list")),
              (Names{"._share", "My Docs", "a path b", "docs/.snap"}));
}

// Guards: a share missed or invented, a hostile volume name run by a shell; a plain tree
// (the tool cannot list subvolumes) giving no shares or wrong ones.
TEST_F(FileUtilsTest, ShareEnumeratorFindsEveryShareOfEveryVolume) {
    ScopedCwd cwd(tmp_.path());
    for (const std::string &dir : lines(read_file(KSDB_TEST_DATA_DIR "/share-volume-tree")))
        if (dir[0] != '#') mkdirs(at(dir));
    put("/vol4/._share", "");

    const Found all{{"data", "My Public"}, {"data", "docs"}, {"q'v;touch MARK", "$(touch MARK)"},
                    {"vol1", "My Docs"},   {"vol1", "hidden"}, {"vol1", "s2"}};
    // The shares found, sorted, when each call of collect() returns `rc`.
    auto shares = [&](int stop, int rc, int expected) {
        Found found;
        g_collect_rc = rc;
        EXPECT_EQ(ksdb_foreach_share_subvolume(h(), db(), collect, &found, stop), expected) << stop << rc;
        std::sort(found.begin(), found.end());
        return found;
    };
    EXPECT_EQ(shares(1, 0, 0), all);
    auto calls = fake_calls();
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (std::vector<FakeCall>{
                         {"btrfs", "subvolume", "list", at("/data/._share/..")},
                         {"btrfs", "subvolume", "list", at("/q'v;touch MARK/._share/..")},
                         {"btrfs", "subvolume", "list", at("/vol1/._share/..")}}));
    EXPECT_FALSE(exists(tmp_ / "MARK"));

    EXPECT_EQ(shares(1, 7, 7).size(), 1u);
    EXPECT_EQ(shares(0, 7, 0), all);

    // Where the tool cannot list subvolumes (a plain tree), the folders are taken.
    ScopedEnv fail("KSDB_FAKE_FAIL", "btrfs");
    EXPECT_EQ(shares(1, 0, 0), all);
}

// Guards: the one-line reader taking an indented line; the writer dropping owner and mode.
TEST(OneLineFiles, ReadTheFirstUnindentedLineAndWriteOne) {
    TempDir dir;
    // The status and the line read from a file holding `text` into `size` bytes.
    auto first_line = [&](const char *name, const char *text, size_t size) {
        if (text) write_file(dir / name, text);
        std::vector<char> buf(size, 'x');
        const int rc = ksdb_file_get_one_line((dir / name).c_str(), buf.data(), size);
        return std::to_string(rc) + " " + buf.data();
    };
    EXPECT_EQ(first_line("a", "  indented\n\tnote\nvalue\r\nlater\n", 64), "0 value");
    EXPECT_EQ(first_line("b", "  first\n  last\r\n", 64), "0   last");  // every line indented: the last
    EXPECT_EQ(first_line("long", "abcdefgh\n", 4), "0 abc");
    EXPECT_EQ(first_line("missing", nullptr, 64), "-1 ");

    // The writer keeps an existing file's owner and mode.
    write_file(dir / "f", "old\n");
    ASSERT_EQ(chown((dir / "f").c_str(), 98, 3), 0);
    ASSERT_EQ(chmod((dir / "f").c_str(), 0640), 0);
    EXPECT_EQ(ksdb_file_put_one_line((dir / "f").c_str(), "no"), 0);
    EXPECT_EQ(read_file(dir / "f"), "no\n");
    EXPECT_EQ(owner_mode(dir / "f"), "98:3 0640");
    EXPECT_EQ(ksdb_file_put_one_line((dir / "new").c_str(), "x"), 0);
    EXPECT_EQ(mode_of(dir / "new"), 0644u);
    EXPECT_EQ(ksdb_file_put_one_line((dir / "no/such").c_str(), "x"), -1);
    write_file(dir / "file", "");
    EXPECT_EQ(ksdb_file_put_one_line((dir / "file/x").c_str(), "x"), -1);
}

// Guards: continuation lines joined wrongly; a duplicate key keeping its first value;
// values cut wrongly, defaults not given.
TEST_F(FileUtilsTest, JoinedLinesValuesAndTheLastValueOfADuplicateKey) {
    std::string text = "a = 1 \\ \t\n  b\nc\\\nd \\\n\n#x\nlast\\";
    std::vector<std::string> got;
    ksdb::for_each_joined_line(text.data(), [&](char *line, const char *) {
        got.push_back(line);
        return true;
    });
    // The backslash, the blanks after it and the newline become one blank;
    // a backslash that ends the text without a newline stays.
    EXPECT_EQ(got, (Names{"a = 1    b", "c d  ", "#x", "last\\"}));

    char line[] = "key =  \tvalue here\nnext=1";
    EXPECT_STREQ(ksdb_conf_value(line), "value here");
    char none[] = "no equals sign\n";
    EXPECT_EQ(ksdb_conf_value(none), nullptr);
    char buf[8] = "keep";
    EXPECT_STREQ(ksdb_conf_value_str("no value", buf, sizeof buf), "keep");
    EXPECT_STREQ(ksdb_conf_value_str("k=0123456789\nnext", buf, 4), "012");
    EXPECT_STREQ(ksdb_conf_value_str("k= ab\nnext", buf, sizeof buf), "ab");
    EXPECT_EQ(ksdb_conf_value_int("port = 2222\n"), 2222);
    EXPECT_EQ(ksdb_conf_value_int("nothing"), -1);
    EXPECT_EQ(ksdb_conf_value_ulong("size = 18446744073709551615\n"), ULONG_MAX);
    EXPECT_EQ(ksdb_conf_value_ulong("nothing"), ~0ul);

    put("/x.ini", "[s]\nk = first\nother = 1\nk = second\n");
    ksdb::IniFile ini;
    ASSERT_EQ(ksdb::read_ini(h(), "/x.ini", &ini), 0);
    const ksdb::KeyValues *s = ini.section("s");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->items(), (std::vector<std::pair<std::string, std::string>>{{"k", "second"},
                                                                          {"other", "1"}}));
}

// Guards: a device found by a prefix of its name.
TEST(DevMounted, MatchesTheWholeDeviceNameAtTheStartOfAMountsLine) {
    std::string dev;  // the first device mounted here
    for (const auto &line : lines(read_file("/proc/mounts")))
        if (dev.empty() && line.rfind("/dev/", 0) == 0) dev = line.substr(5, line.find(' ') - 5);
    EXPECT_EQ(ksdb_is_dev_mounted("ksdb-no-such-device"), 0);
    if (dev.empty()) GTEST_SKIP() << "no /dev device is mounted here";
    EXPECT_EQ(ksdb_is_dev_mounted(dev.c_str()), 1) << dev;
    EXPECT_EQ(ksdb_is_dev_mounted(dev.substr(0, dev.size() - 1).c_str()), 0) << dev;
}

}  // namespace
