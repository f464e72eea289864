// The managed-file layer: the file table, loading and opening below the
// debug root, temporary files, the backup-and-replace update (also under
// SIGKILL at random moments), the file mover, the per-share folders and
// the share enumerator, and the small line helpers.
#define KSDB_MODULE "test_file_utils"
#include "util/ksdb_file_utils.h"

#include "tests/support/test_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

using namespace ksdb_test;

namespace {

struct stat stat_of(const std::string &path) {
    struct stat st {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return st;
}

unsigned mode_of(const std::string &path) { return stat_of(path).st_mode & 07777; }

// Names of the entries of a folder, "." and ".." left out.
std::vector<std::string> list_dir(const std::string &dir) {
    std::vector<std::string> out;
    if (DIR *d = opendir(dir.c_str())) {
        while (struct dirent *e = readdir(d))
            if (std::strcmp(e->d_name, ".") && std::strcmp(e->d_name, "..")) out.push_back(e->d_name);
        closedir(d);
    }
    std::sort(out.begin(), out.end());
    return out;
}

// Writes a temporary file the way an exporter does and returns its path.
std::string make_tmp(ksdb_handle *h, const ksdb_file_spec &spec, const std::string &content) {
    char *tmp = nullptr;
    FILE *f = ksdb_file_open_tempfile(h, &spec, &tmp);
    EXPECT_NE(f, nullptr);
    if (!f) return tmp ? tmp : "";
    std::fwrite(content.data(), 1, content.size(), f);
    std::fclose(f);
    return tmp;
}

// A folder on /dev/shm (tmpfs), so that moves between it and /tmp cross
// file systems; empty when /dev/shm is not another file system here.
class ShmDir {
  public:
    ShmDir() {
        char tmpl[] = "/dev/shm/ksdb-test-XXXXXX";
        if (mkdtemp(tmpl)) path_ = tmpl;
    }
    ~ShmDir() {
        if (!path_.empty()) std::system(("rm -rf '" + path_ + "'").c_str());
    }
    bool crosses(const std::string &other) const {
        struct stat a, b;
        return !path_.empty() && stat(path_.c_str(), &a) == 0 && stat(other.c_str(), &b) == 0 &&
               a.st_dev != b.st_dev;
    }
    std::string operator/(const std::string &rel) const { return path_ + "/" + rel; }

  private:
    std::string path_;
};

// The current directory for the scope of the object, so that a command a
// test provokes into running ("touch MARK") would leave its mark there.
class ScopedCwd {
  public:
    explicit ScopedCwd(const std::string &dir) {
        char buf[4096];
        if (getcwd(buf, sizeof buf)) old_ = buf;
        EXPECT_EQ(chdir(dir.c_str()), 0);
    }
    ~ScopedCwd() {
        if (!old_.empty()) {
            EXPECT_EQ(chdir(old_.c_str()), 0);
        }
    }

  private:
    std::string old_;
};

// Records the file events of the observer while installed.
struct FileEvents {
    struct Event {
        std::string target, tmp;
        int phase, status;
        std::string tmp_content;  // what the temporary file held at the event
    };
    std::vector<Event> events;
    FileEvents() {
        ksdb_observer obs{};
        obs.file = [](void *arg, const char *target, const char *tmp, int phase, int status) {
            static_cast<FileEvents *>(arg)->events.push_back(
                {target, tmp, phase, status, exists(tmp) ? read_file(tmp) : "<none>"});
        };
        obs.arg = this;
        ksdb_set_observer(&obs);
    }
    ~FileEvents() { ksdb_set_observer(nullptr); }
};

class FileUtilsTest : public RootTest {
  protected:
    int update(const ksdb_file_spec &spec, const std::string &tmp) {
        return ksdb_file_update(h(), &spec, tmp.c_str());
    }
};

// ---- the file table ----------------------------------------------------------

TEST(FileSpecTable, HoldsEveryManagedFileInOrderWithOwnerAndMode) {
    const char *const expected[] = {
        "/etc/default/nfs-kernel-server 98 98 0600",
        "/etc/idmapd.conf 0 0 0600",
        "/etc/samba/winbind.conf 98 98 0600",
        "/etc/netatalk/afpd.conf 0 0 0644",
        "/etc/netatalk/afp.conf 0 0 0644",
        "/etc/netatalk/timemachine.conf 0 0 0644",
        "/etc/proftpd/proftpd.conf 98 98 0644",
        "/etc/quillfold/proftpd/ftps.conf 98 98 0644",
        "/etc/quillfold/apache/http-redirect.conf 98 98 0644",
        "/etc/quillfold/apache/http-share-redirect.conf 98 98 0644",
        "/etc/apache2/sites-enabled/001-qf-https2 98 98 0644",
        "/etc/snmp/snmpd.conf 98 98 0600",
        "/etc/ssh/sshd_config 0 3 0644",
        "/opt/replication/etc/registration.conf 0 0 0644",
        "/etc/nut/upsmon.conf 0 3 0644",
        "/etc/nut/upsd.conf 0 3 0644",
        "/etc/quillfold/ups.conf 0 3 0644",
        "/etc/nut/ups.conf 0 3 0644",
        "/etc/forked-daapd.conf 98 98 0644",
        "/etc/clamav/clamd.conf 0 0 0644",
        "/etc/quillfold/account.conf 98 98 0600",
        "/etc/passwd 0 0 0644",
        "/etc/shadow 0 0 0400",
        "/etc/group 0 0 0644",
        "/etc/gshadow 0 0 0640",
        "/etc/quillfold/passwordrecovery.conf 98 98 0644",
        "/etc/quillfold/usb/storage.conf 98 98 0600",
        "/etc/quillfold/samba/Shares.conf 98 98 0600",
        "/etc/quillfold/samba/dfs.conf 98 98 0644",
        "/run/usb/samba/Shares.conf 98 98 0600",
        "/etc/netatalk/AppleVolumes.default 98 98 0644",
        "/etc/quillfold/netatalk/Shares.conf 98 98 0644",
        "/run/usb/netatalk/Shares.conf 98 98 0644",
        "/etc/exports 98 98 0644",
        "/etc/quillfold/proftpd/Shares.conf 98 98 0600",
        "/etc/quillfold/apache/Shares.conf 98 98 0644",
        "/etc/quillfold/apache/WebShare.conf 98 98 0644",
        "/etc/minidlna.conf 98 98 0644",
        "/etc/brisktivo.conf 98 98 0644",
        "/etc/quillfold/rsync/Shares.conf 0 0 0600",
        "/etc/cron.d/quillfold-backup 0 0 0644",
        "/etc/quillfold/backup_jobs.conf 98 98 0640",
        "/etc/quillfold/backup_wol_addr 98 98 0644",
        "/etc/quillfold/backup_button_jobs 98 98 0644",
        "/etc/replisync/replisync.conf 98 98 0644",
    };
    size_t count = 0;
    const ksdb_file_spec *table = ksdb_file_spec_table(&count);
    std::vector<std::string> got;
    for (size_t i = 0; i < count; ++i)
        got.push_back(ksdb::strprintf("%s %d %d %04o", table[i].path, table[i].uid, table[i].gid,
                                      table[i].mode));
    EXPECT_EQ(got, std::vector<std::string>(std::begin(expected), std::end(expected)));
}

TEST(FileSpecTable, LookupAnswersFromBothTablesAndDefaultsToRoot0644) {
    struct Case {
        const char *path;
        int result, uid, gid, mode;
    } cases[] = {
        {"/etc/shadow", 1, 0, 0, 0400},
        {"/etc/ssh/sshd_config", 1, 0, 3, 0644},
        {"/etc/quillfold/samba/Shares.conf", 1, 98, 98, 0600},
        // Files outside the fixed table.
        {"/etc/samba/smb.conf", 1, 0, 0, 0644},
        {"/etc/default/services", 1, 0, 0, 0644},
        {"/etc/quillfold/samba/usermap.conf", 1, 98, 98, 0644},
        {"/etc/quillfold/samba/Shares.conf.admin", 1, 98, 98, 0600},
        {"/etc/avahi/services/afp.service", 1, 0, 0, 0644},
        {"/etc/kestravaVault.config", 1, 0, 0, 0600},
        {"/etc/quillfold/user_hf_settings.conf", 1, 98, 98, 0644},
        {"/etc/quillfold/ssh_authorized_keys.conf", 1, 0, 0, 0600},
        {"/etc/replisync/authorized_keys", 1, 0, 0, 0600},
        {"/etc/quillfold/rsync/secrets/public", 1, 0, 0, 0600},
        {"/etc/cron.d/quillfold-volumeschedule", 1, 0, 0, 0644},
        // Not managed: a pattern does not reach into sub-folders, and a
        // prefix of a managed path is not that path.
        {"/etc/avahi/services/old/afp.service", 0, 0, 0, 0644},
        {"/etc/avahi/services/afp.service.orig", 0, 0, 0, 0644},
        {"/etc/shadow-", 0, 0, 0, 0644},
        {"/vol1/._share/s1/samba.conf", 0, 0, 0, 0644},
    };
    for (const auto &c : cases) {
        ksdb_file_spec spec{"x", 7, 7, 07777};
        EXPECT_EQ(ksdb_file_spec_lookup(c.path, &spec), c.result) << c.path;
        EXPECT_EQ(spec.path, c.path);
        EXPECT_EQ(spec.uid, c.uid) << c.path;
        EXPECT_EQ(spec.gid, c.gid) << c.path;
        EXPECT_EQ(spec.mode, c.mode) << c.path;
    }
    // The second table stays out of the fixed one.
    size_t count = 0;
    const ksdb_file_spec *table = ksdb_file_spec_table(&count);
    for (size_t i = 0; i < count; ++i) EXPECT_STRNE(table[i].path, "/etc/samba/smb.conf");
}

// ---- loading and opening -------------------------------------------------------

TEST_F(FileUtilsTest, LoadHonoursMaxLenAndStripsTrailingNuls) {
    put("/etc/ten", "0123456789");
    size_t len = 99;
    char *buf = ksdb_file_load(h(), "/etc/ten", 4, &len);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(len, 4u);
    EXPECT_STREQ(buf, "0123");
    buf = ksdb_file_load(h(), "/etc/ten", 0, &len);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(len, 10u);
    EXPECT_STREQ(buf, "0123456789");
    buf = ksdb_file_load(h(), "/etc/ten", 100, &len);
    EXPECT_EQ(len, 10u);

    put("/etc/nuls", std::string("abc\0\0\0", 6));
    buf = ksdb_file_load(h(), "/etc/nuls", 0, &len);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(len, 3u);
    EXPECT_STREQ(buf, "abc");

    // Only trailing NULs are dropped from the length.
    put("/etc/inner", std::string("a\0b", 3));
    buf = ksdb_file_load(h(), "/etc/inner", 0, &len);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(len, 3u);
    EXPECT_EQ(std::string(buf, 4), std::string("a\0b\0", 4));

    put("/etc/empty", "");
    buf = ksdb_file_load(h(), "/etc/empty", 0, &len);
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_STREQ(buf, "");

    // A symbolic link to a regular file loads like the file.
    ASSERT_EQ(symlink(at("/etc/ten").c_str(), at("/etc/link").c_str()), 0);
    buf = ksdb_file_load(h(), "/etc/link", 0, &len);
    ASSERT_NE(buf, nullptr);
    EXPECT_STREQ(buf, "0123456789");
}

TEST_F(FileUtilsTest, LoadRefusesMissingAndNonRegularFiles) {
    size_t len = 99;
    // /etc/hostname exists on the machine, but not below the root.
    EXPECT_EQ(ksdb_file_load(h(), "/etc/hostname", 0, &len), nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_NE(log().find("Cannot stat <" + at("/etc/hostname") + ">\n"), std::string::npos) << log();

    mkdirs(at("/etc/dir"));
    chmod(at("/etc/dir").c_str(), 0755);
    EXPECT_EQ(ksdb_file_load(h(), "/etc/dir", 0, &len), nullptr);
    EXPECT_NE(log().find("<" + at("/etc/dir") + "> is not regular file. mode=40755\n"), std::string::npos)
        << log();

    ASSERT_EQ(mkfifo(at("/etc/fifo").c_str(), 0644), 0);
    chmod(at("/etc/fifo").c_str(), 0644);
    EXPECT_EQ(ksdb_file_load(h(), "/etc/fifo", 0, &len), nullptr);
    EXPECT_NE(log().find("<" + at("/etc/fifo") + "> is not regular file. mode=10644\n"), std::string::npos)
        << log();
}

TEST_F(FileUtilsTest, OpenTakesRegularFilesOnlyAndLogsNothing) {
    put("/etc/plain", "text\n");
    mkdirs(at("/etc/dir"));
    ASSERT_EQ(mkfifo(at("/etc/fifo").c_str(), 0644), 0);
    ASSERT_EQ(symlink("/dev/null", at("/etc/null").c_str()), 0);
    std::string before = log();

    FILE *f = ksdb_file_open(h(), "/etc/plain", "r");
    ASSERT_NE(f, nullptr);
    char line[32] = "";
    EXPECT_NE(std::fgets(line, sizeof line, f), nullptr);
    EXPECT_STREQ(line, "text\n");
    std::fclose(f);

    EXPECT_EQ(ksdb_file_open(h(), "/etc/dir", "r"), nullptr);
    // Neither end of a FIFO blocks: it is refused at once.
    EXPECT_EQ(ksdb_file_open(h(), "/etc/fifo", "r"), nullptr);
    EXPECT_EQ(ksdb_file_open(h(), "/etc/fifo", "w"), nullptr);
    EXPECT_EQ(ksdb_file_open(h(), "/etc/null", "w"), nullptr);
    EXPECT_EQ(ksdb_file_open(h(), "/etc/missing", "r"), nullptr);

    // Writing creates a new file below the root.
    f = ksdb_file_open(h(), "/etc/new", "w");
    ASSERT_NE(f, nullptr);
    std::fputs("new\n", f);
    std::fclose(f);
    EXPECT_EQ(get("/etc/new"), "new\n");
    EXPECT_EQ(log(), before);
}

TEST_F(FileUtilsTest, StatAndUnlinkWorkBelowTheRoot) {
    put("/etc/x", "12345");
    struct stat st;
    EXPECT_EQ(ksdb_file_stat(h(), "/etc/x", &st), 0);
    EXPECT_EQ(st.st_size, 5);
    ksdb_file_unlink(h(), "/etc/x");
    EXPECT_FALSE(exists(at("/etc/x")));
    EXPECT_EQ(ksdb_file_stat(h(), "/etc/x", &st), -1);
    EXPECT_NE(log().find("Cannot stat " + at("/etc/x") + ". (rc=-1)\n"), std::string::npos) << log();
}

// ---- temporary files --------------------------------------------------------------

TEST_F(FileUtilsTest, TemporaryFileIsPrivateAndBelowTheRoot) {
    ksdb_file_spec spec{"/etc/quillfold/samba/Shares.conf", 98, 98, 0600};
    mode_t old_umask = umask(0);
    char *tmp = nullptr;
    FILE *f = ksdb_file_open_tempfile(h(), &spec, &tmp);
    umask(old_umask);
    ASSERT_NE(f, nullptr);
    ASSERT_NE(tmp, nullptr);
    std::string prefix = at("/tmp/Shares.conf.");
    std::string path = tmp;
    ASSERT_EQ(path.compare(0, prefix.size(), prefix), 0) << path;
    std::string letters = path.substr(prefix.size());
    EXPECT_EQ(letters.size(), 6u);
    EXPECT_EQ(letters.find_first_not_of(
                  "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
              std::string::npos);
    struct stat st = stat_of(path);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_size, 0);
    std::fputs("x", f);
    std::fclose(f);
    EXPECT_EQ(read_file(path), "x");

    // Every call gets a file of its own.
    std::set<std::string> names{path};
    for (int i = 0; i < 50; ++i) {
        char *t = nullptr;
        FILE *g = ksdb_file_open_tempfile(h(), &spec, &t);
        ASSERT_NE(g, nullptr);
        std::fclose(g);
        EXPECT_TRUE(names.insert(t).second) << t;
    }
}

namespace planted {
// The scripted letters: "AAAAAA", "BBBBBB", "CCCCCC", ...
int next = 0;
void letters(char out[6]) {
    std::memset(out, 'A' + next, 6);
    ++next;
}
}  // namespace planted

TEST_F(FileUtilsTest, TemporaryFileNeverReusesAPlantedFileOrLink) {
    // Someone expects the names the writer will try and plants a symbolic
    // link (to a file that must not come into being) and a file there.
    std::string victim = tmp_ / "victim";
    ASSERT_EQ(symlink(victim.c_str(), at("/tmp/exports.AAAAAA").c_str()), 0);
    write_file(at("/tmp/exports.BBBBBB"), "planted");
    chmod(at("/tmp/exports.BBBBBB").c_str(), 0666);

    planted::next = 0;
    auto previous = ksdb::set_temp_letters(planted::letters);
    ksdb_file_spec spec{"/etc/exports", 98, 98, 0644};
    char *tmp = nullptr;
    FILE *f = ksdb_file_open_tempfile(h(), &spec, &tmp);
    ksdb::set_temp_letters(previous);
    ASSERT_NE(f, nullptr);
    std::fputs("mine", f);
    std::fclose(f);

    EXPECT_EQ(std::string(tmp), at("/tmp/exports.CCCCCC"));
    EXPECT_EQ(read_file(tmp), "mine");
    EXPECT_EQ(mode_of(tmp), 0600u);
    EXPECT_FALSE(exists(victim));
    EXPECT_TRUE(S_ISLNK(stat_of(at("/tmp/exports.AAAAAA")).st_mode));
    EXPECT_EQ(read_file(at("/tmp/exports.BBBBBB")), "planted");
    EXPECT_EQ(mode_of(at("/tmp/exports.BBBBBB")), 0666u);
}

TEST_F(FileUtilsTest, TemporaryFolderOfTheRootIsMadeWhenMissing) {
    ASSERT_EQ(rmdir(at("/tmp").c_str()), 0);
    ksdb_file_spec spec{"/etc/exports", 98, 98, 0644};
    std::string tmp = make_tmp(h(), spec, "x");
    EXPECT_EQ(tmp.compare(0, at("/tmp/exports.").size(), at("/tmp/exports.")), 0) << tmp;
    EXPECT_EQ(read_file(tmp), "x");
}

// ---- updating a managed file ----------------------------------------------------------

TEST_F(FileUtilsTest, UpdateReplacesTheTargetAndSetsOwnerAndMode) {
    ksdb_file_spec spec{"/etc/exports", 98, 98, 0640};
    put("/etc/exports", "old\n");
    chmod(at("/etc/exports").c_str(), 0777);
    ino_t old_inode = stat_of(at("/etc/exports")).st_ino;
    std::string tmp = make_tmp(h(), spec, "/vol1/s1 *(rw)\n");

    FileEvents events;
    ASSERT_EQ(update(spec, tmp), 0);
    EXPECT_EQ(get("/etc/exports"), "/vol1/s1 *(rw)\n");
    struct stat st = stat_of(at("/etc/exports"));
    EXPECT_EQ(st.st_uid, 98u);
    EXPECT_EQ(st.st_gid, 98u);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_NE(st.st_ino, old_inode);
    EXPECT_FALSE(exists(at("/etc/exports.bak")));
    EXPECT_FALSE(exists(tmp));
    EXPECT_EQ(list_dir(at("/tmp")), std::vector<std::string>{});
    EXPECT_NE(log().find("Update " + at("/etc/exports") + "\n"), std::string::npos) << log();

    // The observer saw the new content before, and the result after.
    ASSERT_EQ(events.events.size(), 2u);
    EXPECT_EQ(events.events[0].target, at("/etc/exports"));
    EXPECT_EQ(events.events[0].tmp, tmp);
    EXPECT_EQ(events.events[0].phase, 0);
    EXPECT_EQ(events.events[0].tmp_content, "/vol1/s1 *(rw)\n");
    EXPECT_EQ(events.events[1].phase, 1);
    EXPECT_EQ(events.events[1].status, 0);

    // Unchanged content is put in place all the same (a new file).
    ino_t inode = st.st_ino;
    tmp = make_tmp(h(), spec, "/vol1/s1 *(rw)\n");
    ASSERT_EQ(update(spec, tmp), 0);
    EXPECT_NE(stat_of(at("/etc/exports")).st_ino, inode);

    // Owners and modes from other specs.
    ksdb_file_spec shadow{"/etc/shadow", 0, 0, 0400};
    put("/etc/shadow", "root:*:1::::::\n");
    chown(at("/etc/shadow").c_str(), 98, 98);
    ASSERT_EQ(update(shadow, make_tmp(h(), shadow, "root:x:2::::::\n")), 0);
    st = stat_of(at("/etc/shadow"));
    EXPECT_EQ(st.st_uid, 0u);
    EXPECT_EQ(st.st_gid, 0u);
    EXPECT_EQ(st.st_mode & 07777, 0400u);
    EXPECT_EQ(get("/etc/shadow"), "root:x:2::::::\n");
}

TEST_F(FileUtilsTest, UpdateOfAMissingTargetMakesItsFolderAndLeavesNoBackup) {
    ksdb_file_spec spec{"/etc/quillfold/samba/Shares.conf", 98, 98, 0600};
    std::string tmp = make_tmp(h(), spec, "[s1]\n");
    ASSERT_EQ(update(spec, tmp), 0);
    std::string target = at("/etc/quillfold/samba/Shares.conf");
    EXPECT_EQ(read_file(target), "[s1]\n");
    struct stat st = stat_of(target);
    EXPECT_EQ(st.st_uid, 98u);
    EXPECT_EQ(st.st_gid, 98u);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_TRUE(S_ISDIR(stat_of(at("/etc/quillfold/samba")).st_mode));
    EXPECT_EQ(mode_of(at("/etc/quillfold/samba")), 0755u);
    EXPECT_EQ(list_dir(at("/etc/quillfold/samba")), std::vector<std::string>{"Shares.conf"});
    EXPECT_NE(log().find("move(" + target + "," + target + ".bak) failed (source not exist)\n"),
              std::string::npos)
        << log();
}

TEST_F(FileUtilsTest, UpdateSkipsAMissingTemporaryFile) {
    ksdb_file_spec spec{"/etc/exports", 98, 98, 0644};
    put("/etc/exports", "old\n");
    FileEvents events;
    std::string tmp = at("/tmp/exports.gone00");
    EXPECT_EQ(update(spec, tmp), 0);
    EXPECT_EQ(get("/etc/exports"), "old\n");
    EXPECT_NE(log().find("Skipping update of non-existent " + tmp + "\n"), std::string::npos);
    EXPECT_TRUE(events.events.empty());
}

TEST_F(FileUtilsTest, FailedMoveKeepsTheOldFile) {
    ShmDir shm;
    if (!shm.crosses(root())) GTEST_SKIP() << "/dev/shm is not another file system here";
    ksdb_file_spec spec{"/etc/exports", 98, 98, 0644};
    put("/etc/exports", "old content\n");
    chown(at("/etc/exports").c_str(), 98, 98);
    chmod(at("/etc/exports").c_str(), 0644);
    // A "temporary file" that is a folder on another file system: the move
    // has to copy it, and reading it fails after the target was backed up.
    std::string tmp = shm / "exports.dirdir";
    ASSERT_EQ(mkdir(tmp.c_str(), 0700), 0);

    FileEvents events;
    std::string target = at("/etc/exports"), bak = target + ".bak";
    EXPECT_EQ(update(spec, tmp), -17);
    EXPECT_EQ(get("/etc/exports"), "old content\n");
    EXPECT_EQ(mode_of(target), 0644u);
    EXPECT_FALSE(exists(bak));
    EXPECT_NE(log().find("move(" + tmp + "," + target + ") failed (rc=-17 errno=" +
                         std::to_string(EISDIR) + "). Reverting: " + bak + "-->" + target + "\n"),
              std::string::npos)
        << log();
    EXPECT_NE(log().find("Failed to update " + target + " ('mv " + target + " " + bak + "', 'mv " +
                         tmp + " " + target + "')\n"),
              std::string::npos)
        << log();
    ASSERT_EQ(events.events.size(), 2u);
    EXPECT_EQ(events.events[1].phase, 1);
    EXPECT_EQ(events.events[1].status, -17);
}

TEST_F(FileUtilsTest, UpdateWhoseFolderCannotBeMadeFails) {
    // "/blocked" is a file, so "/blocked/x.conf" can have no folder.
    put("/blocked", "a file");
    ksdb_file_spec spec{"/blocked/x.conf", 0, 0, 0644};
    std::string tmp = make_tmp(h(), spec, "new");
    EXPECT_EQ(update(spec, tmp), -12);
    EXPECT_NE(log().find("Cannot mkdir(" + at("/blocked") + ")\n"), std::string::npos) << log();
    EXPECT_EQ(get("/blocked"), "a file");
    // The temporary file stays for its owner to remove.
    EXPECT_EQ(read_file(tmp), "new");
}

TEST_F(FileUtilsTest, UpdateAcrossFileSystemsSetsTheSpecsOwnerAndMode) {
    ShmDir shm;
    if (!shm.crosses(root())) GTEST_SKIP() << "/dev/shm is not another file system here";
    ksdb_file_spec spec{"/etc/snmp/snmpd.conf", 98, 98, 0600};
    put("/etc/snmp/snmpd.conf", "old old old old old\n");
    std::string tmp = shm / "snmpd.conf.abcdef";
    write_file(tmp, "new\n");
    chmod(tmp.c_str(), 0666);
    ASSERT_EQ(update(spec, tmp), 0);
    // The old file was moved away first, so nothing of it is left behind
    // the shorter new content.
    EXPECT_EQ(get("/etc/snmp/snmpd.conf"), "new\n");
    struct stat st = stat_of(at("/etc/snmp/snmpd.conf"));
    EXPECT_EQ(st.st_uid, 98u);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_FALSE(exists(tmp));
    EXPECT_FALSE(exists(at("/etc/snmp/snmpd.conf.bak")));
}

TEST_F(FileUtilsTest, DebugRootHoldsTargetBackupAndTemporaryFile) {
    // A unique live path, so that a write outside the root would be seen.
    std::string name = "ksdb-file-utils-" + std::to_string(getpid()) + ".conf";
    std::string live = "/etc/" + name;
    ksdb_file_spec spec;
    EXPECT_EQ(ksdb_file_spec_lookup(live.c_str(), &spec), 0);
    put(live, "old");
    FileEvents events;
    std::string tmp = make_tmp(h(), spec, "new");
    EXPECT_EQ(tmp.compare(0, at("/tmp/" + name + ".").size(), at("/tmp/" + name + ".")), 0) << tmp;
    ASSERT_EQ(update(spec, tmp), 0);
    EXPECT_EQ(get(live), "new");
    EXPECT_FALSE(exists(live));
    EXPECT_FALSE(exists(live + ".bak"));
    ASSERT_EQ(events.events.size(), 2u);
    EXPECT_EQ(events.events[0].target, at(live));
    EXPECT_NE(log().find("Update " + at(live) + "\n"), std::string::npos);
}

// Kills a process that keeps replacing one managed file at random moments:
// whatever the moment, the previous content is whole at the target or in
// the backup, and the target never holds a mix of old and new.
TEST_F(FileUtilsTest, UpdateSurvivesSigkillAtAnyMoment) {
    const std::string a(48 * 1024, 'a'), b(16 * 1024 + 7, 'b');
    const std::string live = "/etc/quillfold/account.conf";
    const std::string target = at(live), bak = target + ".bak";
    put(live, a);
    Handle::Options opts;
    opts.root = root().c_str();
    Handle quiet(opts);  // no log: the child must not write into the test's capture

    std::mt19937 rng(12345);
    std::uniform_int_distribution<int> delay_us(0, 1500);
    int missing_target = 0;
    const int kills = 200;
    auto started = std::chrono::steady_clock::now();
    for (int round = 0; round < kills; ++round) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(ready[0]);
            (void)!::write(ready[1], "r", 1);
            for (unsigned i = 0;; ++i) {
                ksdb::ManagedFile out(quiet, live.c_str());
                out.write(i % 2 ? a : b);
                out.commit();
            }
        }
        close(ready[1]);
        char c;
        (void)!::read(ready[0], &c, 1);
        close(ready[0]);
        usleep(static_cast<useconds_t>(delay_us(rng)));
        kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status));

        if (exists(target)) {
            std::string t = read_file(target);
            ASSERT_TRUE(t == a || t == b) << "round " << round << ": the target holds " << t.size()
                                          << " bytes of mixed or partial content";
        } else {
            ++missing_target;
            ASSERT_TRUE(exists(bak)) << "round " << round << ": neither target nor backup";
            std::string k = read_file(bak);
            ASSERT_TRUE(k == a || k == b) << "round " << round << ": the backup is not whole";
        }
        // A killed writer leaves at most its one temporary file behind.
        auto left = list_dir(at("/tmp"));
        ASSERT_LE(left.size(), 1u);
        for (const auto &f : left) unlink(at("/tmp/" + f).c_str());
    }
    auto secs = std::chrono::duration_cast<std::chrono::seconds>(
                    std::chrono::steady_clock::now() - started).count();
    EXPECT_LT(secs, 60);
    // A later update always completes the file again.
    {
        ksdb::ManagedFile out(h(), live.c_str());
        out.write(a);
        ASSERT_EQ(out.commit(), 0);
    }
    EXPECT_EQ(get(live), a);
    EXPECT_FALSE(exists(bak));
    RecordProperty("kills_with_target_moved_away", missing_target);
}

// ---- the file mover ---------------------------------------------------------------------

TEST(CopyFile, MovesAcrossFileSystemsKeepingTimesOwnerModeAndTheOldTail) {
    TempDir dir;
    ShmDir shm;
    if (!shm.crosses(dir.path())) GTEST_SKIP() << "/dev/shm is not another file system here";
    std::string src = shm / "src", dst = dir / "dst";
    write_file(src, "NEW");
    write_file(dst, "old content longer");
    ASSERT_EQ(chown(src.c_str(), 98, 3), 0);
    ASSERT_EQ(chmod(src.c_str(), 0640), 0);
    struct timespec times[2] = {{1000000000, 0}, {1200000000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, src.c_str(), times, 0), 0);

    ASSERT_EQ(ksdb::_copy_file(src.c_str(), dst.c_str()), 0);
    EXPECT_FALSE(exists(src));
    struct stat st = stat_of(dst);  // before reading it moves the access time
    // The destination is not truncated: its old tail stays.
    EXPECT_EQ(read_file(dst), "NEW content longer");
    EXPECT_EQ(st.st_uid, 98u);
    EXPECT_EQ(st.st_gid, 3u);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(st.st_atime, 1000000000);
    EXPECT_EQ(st.st_mtime, 1200000000);

    // And back, into a new file.
    std::string back = shm / "back";
    ASSERT_EQ(ksdb::_copy_file(dst.c_str(), back.c_str()), 0);
    EXPECT_EQ(read_file(back), "NEW content longer");
    EXPECT_EQ(stat_of(back).st_mtime, 1200000000);
    EXPECT_FALSE(exists(dst));
}

TEST(CopyFile, RenamesWithinAFileSystem) {
    TempDir dir;
    write_file(dir / "a", "A");
    ino_t inode = stat_of(dir / "a").st_ino;
    write_file(dir / "b", "old longer");
    ASSERT_EQ(ksdb::_copy_file((dir / "a").c_str(), (dir / "b").c_str()), 0);
    EXPECT_EQ(read_file(dir / "b"), "A");
    EXPECT_EQ(stat_of(dir / "b").st_ino, inode);
    EXPECT_FALSE(exists(dir / "a"));
}

TEST(CopyFile, GivesItsNegativeCodes) {
    TempDir dir;
    // No source.
    EXPECT_EQ(ksdb::_copy_file((dir / "none").c_str(), (dir / "x").c_str()), -1);
    // The destination's folder does not exist.
    write_file(dir / "src", "S");
    EXPECT_EQ(ksdb::_copy_file((dir / "src").c_str(), (dir / "no/such").c_str()), -ENOENT);
    EXPECT_EQ(read_file(dir / "src"), "S");
    // The destination cannot be opened for writing (a folder).
    mkdirs(dir / "folder/inner");
    EXPECT_EQ(ksdb::_copy_file((dir / "src").c_str(), (dir / "folder").c_str()), -12);
    EXPECT_EQ(read_file(dir / "src"), "S");
    // The source cannot be opened for reading (a socket).
    int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(sock, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::string sock_path = dir / "sock";
    ASSERT_LT(sock_path.size(), sizeof addr.sun_path);
    std::strcpy(addr.sun_path, sock_path.c_str());
    ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    EXPECT_EQ(ksdb::_copy_file(sock_path.c_str(), (dir / "folder").c_str()), -11);
    close(sock);
    // Reading the source fails (a folder copied onto a file).
    write_file(dir / "file", "F");
    if (stat_of(dir / "folder").st_size > 0) {
        EXPECT_EQ(ksdb::_copy_file((dir / "folder").c_str(), (dir / "file").c_str()), -17);
        EXPECT_TRUE(exists(dir / "folder/inner"));
    }
}

TEST(CopyFile, SourceThatCannotBeRemovedGivesMinusEsrch) {
    TempDir dir;
    ShmDir shm;
    if (!shm.crosses(dir.path())) GTEST_SKIP() << "/dev/shm is not another file system here";
    std::string src = dir / "src";
    write_file(src, "S");
    int fd = open(src.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    int flags = 0;
    bool immutable = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 &&
                     (flags |= FS_IMMUTABLE_FL, ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0);
    if (!immutable) {
        close(fd);
        GTEST_SKIP() << "cannot make a file immutable here";
    }
    int rc = ksdb::_copy_file(src.c_str(), (shm / "dst").c_str());
    flags &= ~FS_IMMUTABLE_FL;
    ioctl(fd, FS_IOC_SETFLAGS, &flags);
    close(fd);
    EXPECT_EQ(rc, -ESRCH);
    EXPECT_EQ(read_file(shm / "dst"), "S");
    EXPECT_EQ(read_file(src), "S");
}

// ---- the managed-file writer -----------------------------------------------------------------

TEST_F(FileUtilsTest, ManagedFileCommitsOnlyThroughCommit) {
    put("/etc/exports", "old\n");
    std::string tmp;
    auto early_return = [&]() -> int {
        ksdb::ManagedFile out(h(), "/etc/exports");
        if (!out.ok()) return 5;
        tmp = out.tmp_path();
        out.printf("/%s/%s *(rw)\n", "vol1", "s1");
        return 3;  // a query failed half-way
    };
    EXPECT_EQ(early_return(), 3);
    EXPECT_FALSE(tmp.empty());
    EXPECT_FALSE(exists(tmp));
    EXPECT_EQ(get("/etc/exports"), "old\n");

    {
        ksdb::ManagedFile out(h(), "/etc/exports");
        ASSERT_TRUE(out.ok());
        EXPECT_EQ(out.spec().uid, 98);
        EXPECT_EQ(out.spec().mode, 0644);
        tmp = out.tmp_path();
        out.printf("/%s/%s *(rw)\n", "vol1", "s1");
        out.write("/vol1/s2 *(ro)\n");
        EXPECT_EQ(out.commit(), 0);
    }
    EXPECT_EQ(get("/etc/exports"), "/vol1/s1 *(rw)\n/vol1/s2 *(ro)\n");
    EXPECT_EQ(stat_of(at("/etc/exports")).st_uid, 98u);
    EXPECT_EQ(mode_of(at("/etc/exports")), 0644u);
    EXPECT_FALSE(exists(tmp));

    // An explicit spec.
    {
        ksdb::ManagedFile out(h(), ksdb_file_spec{"/etc/custom.conf", 98, 3, 0640});
        out.write("c\n");
        EXPECT_EQ(out.commit(), 0);
    }
    EXPECT_EQ(get("/etc/custom.conf"), "c\n");
    EXPECT_EQ(stat_of(at("/etc/custom.conf")).st_gid, 3u);
    EXPECT_EQ(mode_of(at("/etc/custom.conf")), 0640u);

    // abandon() keeps the target.
    {
        ksdb::ManagedFile out(h(), "/etc/exports");
        out.write("never\n");
        tmp = out.tmp_path();
        out.abandon();
        EXPECT_FALSE(exists(tmp));
    }
    EXPECT_EQ(get("/etc/exports"), "/vol1/s1 *(rw)\n/vol1/s2 *(ro)\n");
    EXPECT_EQ(list_dir(at("/tmp")), std::vector<std::string>{});
}

TEST_F(FileUtilsTest, ManagedFileFailuresRemoveTheTemporaryFile) {
    // The update fails: its status comes back and the temporary file goes.
    put("/blocked", "a file");
    {
        ksdb::ManagedFile out(h(), "/blocked/x.conf");
        ASSERT_TRUE(out.ok());
        out.write("x");
        EXPECT_EQ(out.commit(), -12);
    }
    EXPECT_EQ(list_dir(at("/tmp")), std::vector<std::string>{});

    // No temporary file can be made: ok() is false and commit() gives 5.
    ASSERT_EQ(rmdir(at("/tmp").c_str()), 0);
    put("/tmp", "a file where the folder belongs");
    {
        ksdb::ManagedFile out(h(), "/etc/exports");
        EXPECT_FALSE(out.ok());
        out.printf("%s", "ignored");
        EXPECT_EQ(out.commit(), KSDB_E_FILE);
    }
    EXPECT_FALSE(exists(at("/etc/exports")));
    char *tmp = nullptr;
    ksdb_file_spec spec{"/etc/exports", 98, 98, 0644};
    EXPECT_EQ(ksdb_file_open_tempfile(h(), &spec, &tmp), nullptr);
}

// ---- per-share folders and the share enumerator ------------------------------------------------

TEST_F(FileUtilsTest, ShareConfSpecMakesTheFoldersBelowTheRoot) {
    mkdirs(at("/vol1"));
    ksdb_file_spec spec{};
    ASSERT_EQ(ksdb_share_conf_spec(h(), "vol1", "s1", "samba", &spec), 0);
    EXPECT_STREQ(spec.path, "/vol1/._share/s1/samba.conf");
    EXPECT_EQ(spec.uid, 98);
    EXPECT_EQ(spec.gid, 98);
    EXPECT_EQ(spec.mode, 0644);
    EXPECT_TRUE(S_ISDIR(stat_of(at("/vol1/._share")).st_mode));
    EXPECT_EQ(mode_of(at("/vol1/._share")), 0755u);
    EXPECT_TRUE(S_ISDIR(stat_of(at("/vol1/._share/s1")).st_mode));
    EXPECT_EQ(fake_calls(), (std::vector<FakeCall>{
                                {"btrfs", "subvolume", "create", at("/vol1/._share")}}));
    EXPECT_NE(log().find("chmod(" + at("/vol1/._share") + ", 0755)\n"), std::string::npos) << log();

    // The subvolume exists now: a second share only gets its folder.
    clear_fake_calls();
    ASSERT_EQ(ksdb_share_conf_spec(h(), "vol1", "s2", "nfs", &spec), 0);
    EXPECT_STREQ(spec.path, "/vol1/._share/s2/nfs.conf");
    EXPECT_TRUE(fake_calls().empty());
    ASSERT_EQ(ksdb_share_conf_spec(h(), "vol1", "s2", "afp", &spec), 0);

    // The spec writes where an exporter expects it.
    ksdb::ManagedFile out(h(), spec);
    out.write("x\n");
    ASSERT_EQ(out.commit(), 0);
    EXPECT_EQ(get("/vol1/._share/s2/afp.conf"), "x\n");

    // A file in the place of ._share is replaced by the subvolume.
    mkdirs(at("/vol2"));
    put("/vol2/._share", "stray");
    ASSERT_EQ(ksdb_share_conf_spec(h(), "vol2", "s1", "samba", &spec), 0);
    EXPECT_TRUE(S_ISDIR(stat_of(at("/vol2/._share")).st_mode));
    EXPECT_EQ(fake_calls("btrfs").size(), 1u);
}

TEST_F(FileUtilsTest, ShareConfSpecFailures) {
    mkdirs(at("/vol1"));
    ksdb_file_spec spec{"unchanged", 1, 2, 3};
    {
        ScopedEnv fail("KSDB_FAKE_FAIL", "btrfs");
        EXPECT_EQ(ksdb_share_conf_spec(h(), "vol1", "s1", "samba", &spec), -1);
    }
    EXPECT_NE(log().find("Fail 'btrfs subvolume create '" + at("/vol1/._share") + "''\n"),
              std::string::npos)
        << log();
    EXPECT_STREQ(spec.path, "unchanged");
    EXPECT_FALSE(exists(at("/vol1/._share")));

    // The share's folder cannot be made.
    EXPECT_EQ(ksdb_share_conf_spec(h(), "vol1", "a/b", "samba", &spec), -1);
    EXPECT_NE(log().find("mkdir(" + at("/vol1/._share/a/b") + ") failed.\n"), std::string::npos)
        << log();

    // Names that would climb out of the volume are refused before anything
    // is made or run.
    clear_fake_calls();
    EXPECT_EQ(ksdb_share_conf_spec(h(), "../outside", "s1", "samba", &spec), -1);
    EXPECT_EQ(ksdb_share_conf_spec(h(), "vol1", "..", "samba", &spec), -1);
    EXPECT_EQ(ksdb_share_conf_spec(h(), "vol1", "s1", "../../../x", &spec), -1);
    EXPECT_EQ(ksdb_share_conf_spec(h(), "", "s1", "samba", &spec), -1);
    EXPECT_FALSE(exists(tmp_ / "outside"));
    EXPECT_TRUE(fake_calls().empty());
    EXPECT_STREQ(spec.path, "unchanged");
}

TEST_F(FileUtilsTest, HostileNamesReachBtrfsAsOneArgument) {
    ScopedCwd cwd(tmp_.path());
    std::string marker = tmp_ / "MARK";
    const std::string volumes[] = {
        "v;touch MARK",
        "$(touch MARK)",
        "`touch MARK`",
        "it's \"quoted\"",
        "new\nline;touch MARK",
        "x$(touch " + marker + ")",
        "'; touch MARK; '",
    };
    for (const auto &v : volumes) {
        clear_fake_calls();
        ksdb_file_spec spec{};
        ASSERT_EQ(ksdb_share_conf_spec(h(), v.c_str(), "s;touch MARK", "samba", &spec), 0) << v;
        EXPECT_EQ(fake_calls(), (std::vector<FakeCall>{
                                    {"btrfs", "subvolume", "create", at("/" + v + "/._share")}}))
            << v;
        EXPECT_TRUE(S_ISDIR(stat_of(at("/" + v + "/._share/s;touch MARK")).st_mode)) << v;
        EXPECT_EQ(std::string(spec.path), "/" + v + "/._share/s;touch MARK/samba.conf");
    }
    EXPECT_FALSE(exists(marker));
}

using Found = std::vector<std::pair<std::string, std::string>>;

int collect(ksdb_handle *, sqlite3 *, const char *volume, const char *subvolume, void *arg) {
    static_cast<Found *>(arg)->emplace_back(volume, subvolume);
    return 0;
}

int stop_at_first(ksdb_handle *, sqlite3 *, const char *volume, const char *subvolume, void *arg) {
    static_cast<Found *>(arg)->emplace_back(volume, subvolume);
    return 7;
}

TEST_F(FileUtilsTest, ShareEnumeratorListsShareSubvolumesBelowTheRoot) {
    mkdirs(at("/vol1/._share/s1"));
    mkdirs(at("/vol1/._share/hidden"));
    mkdirs(at("/vol1/s1"));
    mkdirs(at("/vol1/s2"));
    mkdirs(at("/vol1/.hidden"));  // a dotted share folder with its configuration folder
    mkdirs(at("/vol1/.nope"));    // a dotted folder without one
    mkdirs(at("/vol2/._share"));
    mkdirs(at("/vol2/data"));
    mkdirs(at("/vol3/data"));  // no ._share: not a share volume
    put("/vol4/._share", "");  // not a folder
    mkdirs(at("/vol4/data"));

    Found found;
    ASSERT_EQ(ksdb_foreach_share_subvolume(h(), db(), collect, &found, 1), 0);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (Found{{"vol1", "hidden"}, {"vol1", "s1"}, {"vol1", "s2"}, {"vol2", "data"}}));

    auto calls = fake_calls();
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (std::vector<FakeCall>{{"btrfs", "subvolume", "list", at("/vol1/._share/..")},
                                            {"btrfs", "subvolume", "list", at("/vol2/._share/..")}}));

    // A callback's failure stops the walk only when asked to.
    found.clear();
    EXPECT_EQ(ksdb_foreach_share_subvolume(h(), db(), stop_at_first, &found, 1), 7);
    EXPECT_EQ(found.size(), 1u);
    found.clear();
    EXPECT_EQ(ksdb_foreach_share_subvolume(h(), db(), stop_at_first, &found, 0), 0);
    EXPECT_EQ(found.size(), 4u);
}

TEST_F(FileUtilsTest, ShareEnumeratorSkipsLinesItCannotParse) {
    mkdirs(at("/v,1/._share"));
    mkdirs(at("/v,1/data"));
    Found found;
    ASSERT_EQ(ksdb_foreach_share_subvolume(h(), db(), collect, &found, 1), 0);
    EXPECT_TRUE(found.empty());
    EXPECT_NE(log().find("Fail parse line=V=v,1,S=data\n"), std::string::npos) << log();
}

TEST_F(FileUtilsTest, ShareEnumeratorRunsNothingFromNamesOrTheRoot) {
    ScopedCwd cwd(tmp_.path());
    // Hostile volume names on disk, and a hostile debug root (inside the
    // fixture's root, so that the fakes still watch every path).
    const std::string volumes[] = {"a;touch${IFS}MARK", "$(touch${IFS}MARK)", "`touch${IFS}MARK`",
                                   "q'u\"ote"};
    for (const auto &v : volumes) {
        mkdirs(at("/" + v + "/._share"));
        mkdirs(at("/" + v + "/data"));
    }
    Found found;
    ASSERT_EQ(ksdb_foreach_share_subvolume(h(), db(), collect, &found, 1), 0);
    std::sort(found.begin(), found.end());
    Found expected;
    std::vector<FakeCall> expected_calls;
    for (const auto &v : volumes) {
        expected.emplace_back(v, "data");
        expected_calls.push_back({"btrfs", "subvolume", "list", at("/" + v + "/._share/..")});
    }
    std::sort(expected.begin(), expected.end());
    std::sort(expected_calls.begin(), expected_calls.end());
    EXPECT_EQ(found, expected);
    auto calls = fake_calls();
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, expected_calls);

    std::string odd_root = at("/r'oot$(touch${IFS}MARK)`touch${IFS}MARK` x");
    mkdirs(odd_root + "/volx/._share");
    mkdirs(odd_root + "/volx/data");
    Handle::Options opts;
    opts.root = odd_root.c_str();
    Handle odd(opts);
    clear_fake_calls();
    found.clear();
    ASSERT_EQ(ksdb_foreach_share_subvolume(odd, db(), collect, &found, 1), 0);
    EXPECT_EQ(found, (Found{{"volx", "data"}}));
    EXPECT_EQ(fake_calls(), (std::vector<FakeCall>{
                                {"btrfs", "subvolume", "list", odd_root + "/volx/._share/.."}}));
    EXPECT_FALSE(exists(tmp_ / "MARK"));
}

TEST(ShareEnumerator, CommandTextOnTheLiveSystemAndBelowARoot) {
    Handle live;
    EXPECT_EQ(ksdb::share_subvolume_command(live),
              "find / -maxdepth 2 -mindepth 2 -name ._share -type d -print -exec btrfs subvolume "
              "list {}/.. 2>/dev/null \\; | awk 'NF==1{sub(\"/._share\",\"\",$1);sub(/^\\//,\"\",$1);"
              "V=$1;next} {print \"V=\" V \",S=\" $NF}'");
    TempDir dir;
    Handle::Options opts;
    opts.root = dir.path().c_str();
    Handle rooted(opts);
    EXPECT_EQ(ksdb::share_subvolume_command(rooted),
              "find '" + dir.path() +
                  "' -maxdepth 2 -mindepth 2 -name ._share -type d -printf '%P\\n' -exec sh -c "
                  "'btrfs subvolume list \"$1\" 2>/dev/null || find \"$1\" -mindepth 1 -maxdepth 1 "
                  "-type d -printf \"ID 0 gen 0 top level 5 path %f\\n\"' sh {}/.. \\; | "
                  "awk 'NF==1{sub(\"/._share\",\"\",$1);sub(/^\\//,\"\",$1);V=$1;next} "
                  "{print \"V=\" V \",S=\" $NF}'");
}

class ShareEnumeratorTree : public RootTest {};

// A debug root that is a plain tree: where the file-system tool cannot list
// subvolumes, the volume's folders stand for them.
TEST_F(ShareEnumeratorTree, FoldersStandForSubvolumesWhereTheToolCannotList) {
    mkdirs(at("/data/._share/docs"));
    mkdirs(at("/data/docs"));
    mkdirs(at("/data/public"));
    mkdirs(at("/data/.hidden"));
    ScopedEnv fail("KSDB_FAKE_FAIL", "btrfs");
    std::vector<std::pair<std::string, std::string>> found;
    auto collect = [](ksdb_handle *, sqlite3 *, const char *volume, const char *subvolume,
                      void *arg) {
        static_cast<std::vector<std::pair<std::string, std::string>> *>(arg)->emplace_back(
            volume, subvolume);
        return 0;
    };
    ASSERT_EQ(ksdb_foreach_share_subvolume(h(), db(), collect, &found, 1), 0);
    std::sort(found.begin(), found.end());
    // "._share" itself reads as the hidden name "_share", which has no
    // settings folder, and ".hidden" has none either.
    EXPECT_EQ(found, (std::vector<std::pair<std::string, std::string>>{{"data", "docs"},
                                                                      {"data", "public"}}));
    EXPECT_EQ(fake_calls("btrfs").size(), 1u);
}

// ---- one-line files and value helpers -----------------------------------------------------------

TEST(OneLineFiles, ReadTheFirstUnindentedLine) {
    TempDir dir;
    char buf[64];
    write_file(dir / "a", "  indented\n\tnote\nvalue\r\nlater\n");
    EXPECT_EQ(ksdb_file_get_one_line((dir / "a").c_str(), buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "value");

    // Every line indented: the last one, its end stripped.
    write_file(dir / "b", "  first\n  last\r\n");
    EXPECT_EQ(ksdb_file_get_one_line((dir / "b").c_str(), buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "  last");

    std::strcpy(buf, "junk");
    write_file(dir / "empty", "");
    EXPECT_EQ(ksdb_file_get_one_line((dir / "empty").c_str(), buf, sizeof buf), -1);
    EXPECT_STREQ(buf, "");
    std::strcpy(buf, "junk");
    EXPECT_EQ(ksdb_file_get_one_line((dir / "missing").c_str(), buf, sizeof buf), -1);
    EXPECT_STREQ(buf, "");

    // A small buffer takes the beginning of the line.
    write_file(dir / "long", "abcdefgh\n");
    char small[4];
    EXPECT_EQ(ksdb_file_get_one_line((dir / "long").c_str(), small, sizeof small), 0);
    EXPECT_STREQ(small, "abc");
}

TEST(OneLineFiles, WriteOneLine) {
    TempDir dir;
    EXPECT_EQ(ksdb_file_put_one_line((dir / "f").c_str(), "yes"), 0);
    EXPECT_EQ(read_file(dir / "f"), "yes\n");
    EXPECT_EQ(ksdb_file_put_one_line((dir / "f").c_str(), "no"), 0);
    EXPECT_EQ(read_file(dir / "f"), "no\n");
    EXPECT_EQ(ksdb_file_put_one_line((dir / "no/such").c_str(), "x"), -1);
    char buf[16];
    ASSERT_EQ(ksdb_file_get_one_line((dir / "f").c_str(), buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "no");
}

TEST(ConfValue, TakesTheTextAfterTheFirstEquals) {
    char line[] = "key =  \tvalue here\nnext=1";
    char *v = ksdb_conf_value(line);
    ASSERT_NE(v, nullptr);
    EXPECT_STREQ(v, "value here");
    char nested[] = "a=b=c";
    EXPECT_STREQ(ksdb_conf_value(nested), "b=c");
    char none[] = "no equals sign\n";
    EXPECT_EQ(ksdb_conf_value(none), nullptr);
    char empty[] = "k=\n";
    EXPECT_STREQ(ksdb_conf_value(empty), "");

    char buf[8] = "keep";
    ksdb_conf_value_str("no value", buf, sizeof buf);
    EXPECT_STREQ(buf, "keep");
    ksdb_conf_value_str("k = abc\n", buf, sizeof buf);
    EXPECT_STREQ(buf, "abc");
    ksdb_conf_value_str("k=0123456789\n", buf, 4);
    EXPECT_STREQ(buf, "012");

    EXPECT_EQ(ksdb_conf_value_int("port = 2222\n"), 2222);
    EXPECT_EQ(ksdb_conf_value_int("n=-7"), -7);
    EXPECT_EQ(ksdb_conf_value_int("n = abc"), 0);
    EXPECT_EQ(ksdb_conf_value_int("nothing"), -1);

    EXPECT_EQ(ksdb_conf_value_ulong("size = 18446744073709551615\n"), ULONG_MAX);
    EXPECT_EQ(ksdb_conf_value_ulong("n= 42\n"), 42ul);
    EXPECT_EQ(ksdb_conf_value_ulong("nothing"), ~0ul);
}

TEST(JoinedLines, ABackslashBeforeTheNewlineJoinsTheNextLine) {
    std::string text = "a = 1 \\ \t\n  b\nc\\\nd \\\n\n#x\nlast\\";
    std::vector<std::string> got, following;
    ksdb::for_each_joined_line(text.data(), [&](char *line, const char *next) {
        got.push_back(line);
        following.push_back(next ? next : "<end>");
        return true;
    });
    // The backslash, the blanks after it and the newline become one blank;
    // a backslash that ends the text without a newline stays.
    EXPECT_EQ(got, (std::vector<std::string>{"a = 1    b", "c d  ", "#x", "last\\"}));
    EXPECT_EQ(following, (std::vector<std::string>{"c\\\nd \\\n\n#x\nlast\\", "#x\nlast\\",
                                                    "last\\", "<end>"}));

    std::string stop = "one\ntwo\n";
    int calls = 0;
    ksdb::for_each_joined_line(stop.data(), [&](char *, const char *) { return ++calls < 1; });
    EXPECT_EQ(calls, 1);
}

TEST(ValidName, LettersDigitsAndThreeMarks) {
    EXPECT_TRUE(ksdb_is_valid_name("Share_1-a.b"));
    EXPECT_TRUE(ksdb_is_valid_name(""));
    EXPECT_FALSE(ksdb_is_valid_name(nullptr));
    for (const char *bad : {"a b", "a/b", "a;b", "a$b", "\xc3\xa9t\xc3\xa9", "a\n", "a'b"})
        EXPECT_FALSE(ksdb_is_valid_name(bad)) << bad;
}

TEST(Fprintf2, WritesToEachStreamGiven) {
    CaptureFile one, two;
    ksdb_fprintf2(one.get(), two.get(), "%s=%d\n", "a", 1);
    ksdb_fprintf2(nullptr, two.get(), "%s\n", "second only");
    ksdb_fprintf2(one.get(), nullptr, "%s\n", "first only");
    ksdb_fprintf2(nullptr, nullptr, "%s\n", "nowhere");
    EXPECT_EQ(one.text(), "a=1\nfirst only\n");
    EXPECT_EQ(two.text(), "a=1\nsecond only\n");
}

TEST(DevMounted, MatchesTheDeviceAtTheStartOfAMountsLine) {
    std::ifstream mounts("/proc/mounts");
    std::string line, dev;
    while (std::getline(mounts, line))
        if (line.rfind("/dev/", 0) == 0) {
            dev = line.substr(5, line.find(' ') - 5);
            break;
        }
    EXPECT_EQ(ksdb_is_dev_mounted("ksdb-no-such-device"), 0);
    if (dev.empty()) GTEST_SKIP() << "no /dev device is mounted here";
    EXPECT_EQ(ksdb_is_dev_mounted(dev.c_str()), 1) << dev;
    // The name must match whole.
    EXPECT_EQ(ksdb_is_dev_mounted(dev.substr(0, dev.size() - 1).c_str()), 0) << dev;
}

}  // namespace
