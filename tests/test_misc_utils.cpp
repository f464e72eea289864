// Templates, command helpers, account and host look-ups, name checks and
// unit conversions.
#include "tests/support/test_support.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

// A handle logging at debug level into a capture, over an in-memory
// database.
class MiscTest : public ::testing::Test {
  protected:
    MiscTest() {
        Handle::Options opts;
        opts.log = log_.get();
        opts.level = 5;
        handle_ = std::make_unique<Handle>(opts);
    }

    ksdb_handle *h() const { return handle_->get(); }
    std::string log() { return log_.text(); }

    // Writes the pieces (a NULL entry is added) and returns the status;
    // `out` receives everything that reached the stream.
    int write(std::vector<const char *> pieces, std::string &out) {
        pieces.push_back(nullptr);
        CaptureFile file;
        int rc = ksdb_template_write(h(), db_, file.get(), pieces.data());
        out = file.text();
        return rc;
    }

    CaptureFile log_;
    std::unique_ptr<Handle> handle_;
    Db db_;
};

// ---- templates -----------------------------------------------------------------

TEST_F(MiscTest, TemplateReplacesEachFieldByItsValue) {
    std::string out;
    EXPECT_EQ(write({"a{SQL{SELECT 1}}b{SQL{SELECT 2}}c\n"}, out), 0);
    EXPECT_EQ(out, "a1b2c\n");

    db_.exec("CREATE TABLE lang(val TEXT); INSERT INTO lang VALUES('zh_TW');"
             "CREATE TABLE t(v TEXT); INSERT INTO t VALUES('{SQL{SELECT 9}}');");
    EXPECT_EQ(write({"<Global>\n",
                     "{SQL{SELECT CASE WHEN S.val LIKE 'zh%%' THEN 'cp950' ELSE 'utf8' END FROM "
                     "lang S}} {SQL{SELECT '100%%'}}\n",
                     "", "x{SQL{SELECT 1 WHERE 0}}y [{SQL{SELECT NULL}}] <{SQL{}}>\n",
                     "v={SQL{SELECT v FROM t}}\n", "a {SQL{ b\n", "}}x{SQL{SELECT 'y'}}"},
                    out),
              0);
    // No row, NULL and an empty query write nothing; a value is never
    // scanned again; an unclosed field is text.
    EXPECT_EQ(out, "<Global>\ncp950 100%\nxy [] <>\nv={SQL{SELECT 9}}\na {SQL{ b\n}}xy");
}

TEST_F(MiscTest, TemplateValuesDoNotGrowTheCallersPool) {
    // The result pool is a bump allocator: two small blocks are neighbours
    // exactly when nothing was allocated from it in between.
    apr_pool_t *pool = nullptr;
    apr_pool_create(&pool, handle_->pool());
    h()->call_pool = pool;
    char *before = static_cast<char *>(apr_palloc(pool, 8));
    std::string out;
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(write({"x={SQL{SELECT 'a long enough value to notice'}}\n"}, out), 0);
    char *after = static_cast<char *>(apr_palloc(pool, 8));
    h()->call_pool = nullptr;
    EXPECT_EQ(after, before + 8);
    EXPECT_EQ(out, "x=a long enough value to notice\n");
}

TEST_F(MiscTest, TemplateStopsWithStatus3WhenAQueryGivesTwoRowsOrFails) {
    std::string out;
    EXPECT_EQ(write({"first\n", "p{SQL{SELECT 7}}q{SQL{SELECT 1 UNION ALL SELECT 2}}r\n",
                     "never\n"},
                    out),
              3);
    // What was written before the failing field stays; the text in front
    // of the failing field itself does not.
    EXPECT_EQ(out, "first\np7");
    EXPECT_NE(log().find("Query Error for embed sql: SELECT 1 UNION ALL SELECT 2\n"),
              std::string::npos);

    EXPECT_EQ(write({"{SQL{SELECT 1, 2}}\n"}, out), 3);
    EXPECT_EQ(write({"ok\n", "{SQL{SELECT nothing FROM nowhere}}\n"}, out), 3);
    EXPECT_EQ(out, "ok\n");
    EXPECT_NE(log().find("Query Error for embed sql: SELECT nothing FROM nowhere\n"),
              std::string::npos);
}

TEST_F(MiscTest, TemplateRunsA2047CharacterQueryAndRefuses2048) {
    auto query_of = [](size_t length) {
        // SELECT '<x...>' padded to the length with x's.
        std::string q = "SELECT '";
        q += std::string(length - q.size() - 1, 'x');
        q += "'";
        return q;
    };
    const std::string q2047 = query_of(2047), q2048 = query_of(2048);
    ASSERT_EQ(q2047.size(), 2047u);
    ASSERT_EQ(q2048.size(), 2048u);

    std::string out;
    const std::string piece1 = "<{SQL{" + q2047 + "}}>\n";
    EXPECT_EQ(write({piece1.c_str()}, out), 0);
    EXPECT_EQ(out, "<" + std::string(2047 - 9, 'x') + ">\n");

    const std::string piece2 = "<{SQL{" + q2048 + "}}>\n";
    EXPECT_EQ(write({"kept\n", piece2.c_str(), "never\n"}, out), 5);
    EXPECT_EQ(out, "kept\n");
    EXPECT_NE(log().find("Buffer too small.\n"), std::string::npos);
}

TEST_F(MiscTest, TemplateRefusesAQueryWithAFormatDirective) {
    // A query is a format used without arguments: "%s" would read an
    // argument that is not there, so the field fails instead.
    std::string out;
    EXPECT_EQ(write({"a\n", "{SQL{SELECT '%s'}}\n"}, out), 3);
    EXPECT_EQ(out, "a\n");
    EXPECT_NE(log().find("Query Error for embed sql: SELECT '%s'\n"), std::string::npos);
    // Fields do not nest: the query ends at the first "}}" and fails.
    EXPECT_EQ(write({"{SQL{SELECT {SQL{SELECT 1}}}}\n"}, out), 3);
    EXPECT_EQ(ksdb_template_write(h(), db_, stdout, nullptr), 0);
}

TEST_F(MiscTest, TemplateRefusesAValueThatWouldAddALine) {
    db_.exec("CREATE TABLE t(v TEXT); INSERT INTO t VALUES('ok'), ('a\ninjected = yes'), ('b\rc');");
    std::string out;
    EXPECT_EQ(write({"first\n", "x = {SQL{SELECT v FROM t WHERE rowid=1}}\n"}, out), 0);
    for (int row = 2; row <= 3; ++row) {
        const std::string piece = "y = {SQL{SELECT v FROM t WHERE rowid=" + std::to_string(row) + "}}\n";
        EXPECT_EQ(write({"first\n", piece.c_str(), "never\n"}, out), KSDB_E_INVAL) << row;
        EXPECT_EQ(out, "first\n") << row;
    }
    EXPECT_NE(log().find("Refused template.field of 'SELECT v FROM t WHERE rowid=2': a line feed in a line\n"),
              std::string::npos)
        << log();
}

// ---- command helpers -------------------------------------------------------------

TEST(MiscCommand, ShellQuoteKeepsHostileTextOneWord) {
    const std::vector<std::string> values = {
        "plain", "a b", "it's", "a;touch x", "$(id)", "`id`", "\"q\"", "line1\nline2", "",
        "'''", "\\"};
    for (const std::string &v : values) {
        Handle h;
        const char *quoted = ksdb_shell_quote(h, v.c_str());
        ASSERT_NE(quoted, nullptr);
        // printf %s <quoted>: the shell hands the value back unchanged.
        std::string cmd = std::string("printf '[%s]' ") + quoted;
        FILE *p = popen(cmd.c_str(), "r");
        ASSERT_NE(p, nullptr);
        std::string got;
        char buf[256];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, p)) > 0) got.append(buf, n);
        pclose(p);
        EXPECT_EQ(got, "[" + v + "]") << quoted;
    }
}

TEST(MiscCommand, ExecScanfAndSafeSystem) {
    int n = 0;
    char word[8] = {};
    EXPECT_EQ(ksdb_exec_scanf("echo 42 volume", "%d %7s", &n, word), 2);
    EXPECT_EQ(n, 42);
    EXPECT_STREQ(word, "volume");
    EXPECT_EQ(ksdb_exec_scanf("true", "%d", &n), EOF);

    int st = ksdb_safe_system("exit 3");
    ASSERT_TRUE(WIFEXITED(st));
    EXPECT_EQ(WEXITSTATUS(st), 3);
    // Standard input is an empty pipe: a reader ends at once.
    st = ksdb_safe_system("test -z \"$(cat)\"");
    ASSERT_TRUE(WIFEXITED(st));
    EXPECT_EQ(WEXITSTATUS(st), 0);
}

// ---- accounts ----------------------------------------------------------------------

TEST_F(MiscTest, IsAdminUser) {
    EXPECT_EQ(ksdb_is_admin_user(h(), "ADMIN"), 1);
    EXPECT_EQ(ksdb_is_admin_user(h(), "admin"), 1);
    EXPECT_EQ(ksdb_is_admin_user(h(), "administrator"), 1);
    EXPECT_EQ(ksdb_is_admin_user(h(), "@ADMIN"), 0);
    EXPECT_EQ(ksdb_is_admin_user(h(), "root"), 0);
    EXPECT_EQ(ksdb_is_admin_user(h(), "admin2"), 0);
    EXPECT_DEATH(ksdb_is_admin_user(h(), nullptr), "username");
}


TEST_F(MiscTest, AdminUsers) {
    // No service_cifs table: the query fails, the list still has a value.
    EXPECT_STREQ(ksdb_admin_users(h(), db_), "\"+admin\",\"Administrator\"");
    EXPECT_NE(log().find("Failed DB Query for cifs service\n"), std::string::npos);

    db_.exec("CREATE TABLE service_cifs(security TEXT, workgroup TEXT, domain_admin_user TEXT);");
    EXPECT_STREQ(ksdb_admin_users(h(), db_), "\"+admin\",\"Administrator\"");  // no row

    db_.exec("INSERT INTO service_cifs VALUES('user', 'CORP', 'boss');");
    EXPECT_STREQ(ksdb_admin_users(h(), db_), "\"+admin\",\"Administrator\"");

    db_.exec("UPDATE service_cifs SET security='ads';");
    EXPECT_STREQ(ksdb_admin_users(h(), db_), "\"+admin\",\"CORP\\boss\"");

    db_.exec("UPDATE service_cifs SET workgroup=NULL;");
    EXPECT_STREQ(ksdb_admin_users(h(), db_), "\"+admin\",\"Administrator\"");
}

TEST_F(MiscTest, GuestIds) {
    // Missing tables: 0.
    EXPECT_EQ(ksdb_guest_uid(h(), db_), 0u);
    EXPECT_EQ(ksdb_guest_gid(h(), db_), 0u);

    db_.exec("CREATE TABLE `$user`(id INT, uname TEXT); CREATE TABLE `$group`(id INT, gname TEXT);");
    EXPECT_EQ(ksdb_guest_uid(h(), db_), 0u);  // neither account
    EXPECT_EQ(ksdb_guest_gid(h(), db_), 0u);

    db_.exec("INSERT INTO `$user` VALUES(65534,'nobody'),(1000,'alice');"
             "INSERT INTO `$group` VALUES(65534,'nogroup'),(100,'users');");
    EXPECT_EQ(ksdb_guest_uid(h(), db_), 65534u);
    EXPECT_EQ(ksdb_guest_gid(h(), db_), 65534u);

    db_.exec("INSERT INTO `$user` VALUES(99,'guest'); INSERT INTO `$group` VALUES(98,'guest');");
    EXPECT_EQ(ksdb_guest_uid(h(), db_), 99u);
    EXPECT_EQ(ksdb_guest_gid(h(), db_), 98u);
}

// ---- names and units --------------------------------------------------------------

TEST(MiscNames, CheckDomainName) {
    EXPECT_EQ(ksdb_check_domain_name("nas1.local"), 0);
    EXPECT_EQ(ksdb_check_domain_name("my_nas-2.corp.example"), 0);
    EXPECT_EQ(ksdb_check_domain_name(nullptr), -EAGAIN);
    EXPECT_EQ(ksdb_check_domain_name(""), -EAGAIN);
    EXPECT_EQ(ksdb_check_domain_name("-nas"), 1);
    EXPECT_EQ(ksdb_check_domain_name(".nas"), 1);
    EXPECT_EQ(ksdb_check_domain_name("nas 1"), 2);
    EXPECT_EQ(ksdb_check_domain_name("n\xc3\xa4s"), 2);
    EXPECT_EQ(ksdb_check_domain_name("nas..local"), 4);
    EXPECT_EQ(ksdb_check_domain_name("nas.local."), 4);
    EXPECT_EQ(ksdb_check_domain_name("192.168.1.10"), 4);
    EXPECT_EQ(ksdb_check_domain_name("nas.123"), 4);

    const std::string longest = std::string(255, 'a');
    EXPECT_EQ(ksdb_check_domain_name(longest.c_str()), 0);
    const std::string too_long = std::string(256, 'a');
    EXPECT_EQ(ksdb_check_domain_name(too_long.c_str()), 3);
    // The character checks come first: a long name with a blank is 2, and
    // the length check before the labels: a long all-digit name is 3.
    const std::string long_blank = std::string(300, 'a') + " ";
    EXPECT_EQ(ksdb_check_domain_name(long_blank.c_str()), 2);
    const std::string long_digits = std::string(300, '1');
    EXPECT_EQ(ksdb_check_domain_name(long_digits.c_str()), 3);
}

TEST(MiscNames, Units) {
    EXPECT_EQ(ksdb_div_unit(1536, 0), 1u);
    EXPECT_EQ(ksdb_div_unit(1999, 1), 1u);
    EXPECT_EQ(ksdb_mul_unit(2, 0), 2048u);
    EXPECT_EQ(ksdb_mul_unit(2, 1), 2000u);
}

// ---- files and commands under a debug root ------------------------------------

class MiscRootTest : public RootTest {};

TEST_F(MiscRootTest, HostnameIsReadBelowTheDebugRoot) {
    EXPECT_EQ(ksdb_get_hostname(h()), nullptr);  // missing

    put("/etc/hostname", "");
    EXPECT_EQ(ksdb_get_hostname(h()), nullptr);  // empty

    put("/etc/hostname", "nas1\nsecond line\n");
    EXPECT_STREQ(ksdb_get_hostname(h()), "nas1");

    put("/etc/hostname", "nas2");
    EXPECT_STREQ(ksdb_get_hostname(h()), "nas2");

    put("/etc/hostname", std::string(200, 'h') + "\n");
    EXPECT_EQ(std::string(ksdb_get_hostname(h())), std::string(127, 'h'));
}

// ksdb_check_vfat runs "mount |grep <device> |grep vfat".  A stand-in for
// mount, first on PATH, prints a fixed mount table and records each run.
class VfatTest : public RootTest {
  protected:
    VfatTest() {
        bin_ = tmp_ / "bin";
        mkdirs(bin_);
        write_file(bin_ + "/mount", "#!/bin/sh\necho run >>\"" + tmp_ / "mount-runs" +
                                        "\"\ncat \"" + tmp_ / "mount-table" + "\"\n");
        chmod((bin_ + "/mount").c_str(), 0755);
        path_ = std::make_unique<ScopedEnv>("PATH", bin_ + ":" + std::getenv("PATH"));
        // Run from the temporary folder, so that a command injected with a
        // relative file name would leave that file here.
        char *cwd = getcwd(nullptr, 0);
        old_cwd_ = cwd ? cwd : "/";
        free(cwd);
        EXPECT_EQ(chdir(tmp_.path().c_str()), 0);
    }
    ~VfatTest() override { EXPECT_EQ(chdir(old_cwd_.c_str()), 0); }

    void table(const std::string &text) { write_file(tmp_ / "mount-table", text); }
    size_t runs() { return lines(read_file(tmp_ / "mount-runs")).size(); }
    bool injected() { return exists(tmp_ / "pwned1") || exists(tmp_ / "pwned2") ||
                             exists(tmp_ / "pwned3") || exists(tmp_ / "pwned4"); }

    std::string bin_, old_cwd_;
    std::unique_ptr<ScopedEnv> path_;
};

TEST_F(VfatTest, FindsAVfatMount) {
    table("/dev/sda1 on / type ext4 (rw)\n/dev/sdz1 on /mnt/usb type vfat (rw,noatime)\n");
    EXPECT_EQ(ksdb_check_vfat(h(), "/dev/sdz1"), 1);
    EXPECT_EQ(ksdb_check_vfat(h(), "/dev/sda1"), 0);
    EXPECT_EQ(ksdb_check_vfat(h(), "/dev/sdq1"), 0);
    EXPECT_EQ(runs(), 3u);
    EXPECT_NE(log().find("ksdb_check_vfat return: 1\n"), std::string::npos);
    EXPECT_NE(log().find("ksdb_check_vfat return: 0\n"), std::string::npos);
}

TEST_F(VfatTest, HostileDeviceNameReachesGrepAsOneWord) {
    // The whole name appears in the table: it is found only if grep got it
    // as a single pattern, and none of the embedded commands ran.
    const std::string hostile =
        "x y;touch pwned1;$(touch pwned2)`touch pwned3`'\"|touch pwned4 &";
    table("/dev/sda1 on / type ext4 (rw)\n" + hostile + " on /mnt/odd type vfat (rw)\n");
    EXPECT_EQ(ksdb_check_vfat(h(), hostile.c_str()), 1);
    EXPECT_FALSE(injected());

    table("/dev/sdz1 on /mnt/usb type vfat (rw)\n");
    EXPECT_EQ(ksdb_check_vfat(h(), "sdq\ntouch pwned1"), 0);
    EXPECT_EQ(ksdb_check_vfat(h(), "'; touch pwned2; '"), 0);
    EXPECT_FALSE(injected());
    EXPECT_EQ(runs(), 3u);
}

TEST_F(VfatTest, OverlongOptionLikeOrEmptyNamesAreNotLookedUp) {
    // "mount |grep " + 'name' + " |grep vfat" must fit 247 characters.
    const std::string fits(222, 'd'), too_long(223, 'd');
    table(fits + "1 on /mnt type vfat (rw)\n");
    EXPECT_EQ(ksdb_check_vfat(h(), fits.c_str()), 1);
    EXPECT_EQ(runs(), 1u);
    for (const std::string &name : {too_long, std::string(60, '\''), std::string("-r"), std::string("")})
        EXPECT_EQ(ksdb_check_vfat(h(), name.c_str()), 0) << name;
    EXPECT_EQ(ksdb_check_vfat(h(), nullptr), 0);
    EXPECT_EQ(runs(), 1u);
}

}  // namespace
