// Templates, command helpers, account and host look-ups, names and units.
#include "tests/support/test_support.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>

using namespace ksdb_test;

namespace {

class MiscTest : public RootTest {
  protected:
    // Writes the pieces (a NULL entry is added); `out` receives what
    // reached the stream.
    int write(const std::vector<std::string> &texts, std::string &out) {
        std::vector<const char *> pieces;
        for (const std::string &text : texts) pieces.push_back(text.c_str());
        pieces.push_back(nullptr);
        CaptureFile file;
        const int rc = ksdb_template_write(h(), db(), file.get(), pieces.data());
        out = file.text();
        return rc;
    }
};

// Guards: fields not replaced or rescanned; no row, NULL or a failure writing; text
// before a failing field, a query over 2047 characters, "%", a line added; template
// values taken from the caller's result pool.
TEST_F(MiscTest, TemplatesReplaceFieldsAndStopAtTheFirstBadOne) {
    sql().exec("CREATE TABLE lang(val TEXT); INSERT INTO lang VALUES('zh_TW');"
               "CREATE TABLE t(v TEXT); INSERT INTO t VALUES('{SQL{SELECT 9}}');"
               "CREATE TABLE u(v TEXT); INSERT INTO u VALUES('ok'),('a\ninjected = yes'),('b\rc');");
    const std::string q2047 = "SELECT '" + std::string(2047 - 9, 'x') + "'",
                      long_ok = "<{SQL{" + q2047 + "}}>\n", too_long = "<{SQL{" + q2047 + "x}}>\n";
    struct Case {
        std::vector<std::string> pieces;
        int rc;
        std::string out, log;
    };
    std::vector<Case> cases = {{{long_ok}, 0, "<" + std::string(2047 - 9, 'x') + ">\n", ""},
                               {{"kept\n", too_long, "never\n"}, 5, "kept\n", "Buffer too small.\n"}};
    for (const std::string &line : lines(read_file(KSDB_TEST_DATA_DIR "/templates"))) {
        std::vector<std::string> f(1);
        for (char c : replace_all(line, "\\n", "\n"))
            if (c == '\t') f.emplace_back();
            else f.back() += c;
        if (f.size() > 3) cases.push_back({{f.begin() + 3, f.end()}, std::stoi(f[0]), f[1], f[2]});
    }
    ASSERT_EQ(cases.size(), 12u) << "the templates were not all read";
    for (const auto &c : cases) {
        std::string out;
        EXPECT_EQ(write(c.pieces, out), c.rc) << c.pieces[0];
        EXPECT_EQ(out, c.out) << c.pieces[0];
        EXPECT_TRUE(contains(log(), c.log)) << c.log;
    }
    EXPECT_EQ(ksdb_template_write(h(), db(), stdout, nullptr), 0);

    // Values do not come from the caller's result pool.  The pool is a bump
    // allocator: two small blocks are neighbours exactly when nothing was
    // allocated from it in between.
    apr_pool_t *pool = nullptr;
    apr_pool_create(&pool, handle_->pool());
    h()->call_pool = pool;
    char *before = static_cast<char *>(apr_palloc(pool, 8));
    std::string out;
    for (int i = 0; i < 50; ++i) ASSERT_EQ(write({"x={SQL{SELECT 'a long enough value'}}\n"}, out), 0);
    EXPECT_EQ(static_cast<char *>(apr_palloc(pool, 8)), before + 8);
    h()->call_pool = nullptr;
    EXPECT_EQ(out, "x=a long enough value\n");
}

// Guards: scanf results and counts, exit statuses, a child waiting on input.
TEST(MiscCommand, ExecScanfAndSafeSystem) {
    int n = 0;
    char word[8] = {};
    EXPECT_EQ(ksdb_exec_scanf("echo 42 volume", "%d %7s", &n, word), 2);
    EXPECT_EQ(std::to_string(n) + word, "42volume");
    EXPECT_EQ(ksdb_exec_scanf("true", "%d", &n), EOF);
    EXPECT_EQ(ksdb_safe_system("exit 3"), W_EXITCODE(3, 0));
    EXPECT_EQ(ksdb_safe_system("test -z \"$(cat)\""), 0);  // standard input is an empty pipe
}

// Guards: admin names matched by case or prefix; the domain admin outside "ads"; guest ids.
TEST_F(MiscTest, AdminsAndGuests) {
    for (auto [name, admin] : {std::pair{"ADMIN", 1}, {"admin", 1}, {"administrator", 1}, {"@ADMIN", 0},
                               {"root", 0}, {"admin2", 0}})
        EXPECT_EQ(ksdb_is_admin_user(h(), name), admin) << name;
    EXPECT_DEATH(ksdb_is_admin_user(h(), nullptr), "username");

    const char *plain = "\"+admin\",\"Administrator\"";  // also without a service_cifs table
    EXPECT_STREQ(ksdb_admin_users(h(), db()), plain);
    EXPECT_TRUE(contains(log(), "Failed DB Query for cifs service\n"));
    sql().exec("CREATE TABLE service_cifs(security TEXT, workgroup TEXT, domain_admin_user TEXT)");
    EXPECT_STREQ(ksdb_admin_users(h(), db()), plain);
    sql().exec("INSERT INTO service_cifs VALUES('user', 'CORP', 'boss')");
    EXPECT_STREQ(ksdb_admin_users(h(), db()), plain);
    sql().exec("UPDATE service_cifs SET security='ads'");
    EXPECT_STREQ(ksdb_admin_users(h(), db()), "\"+admin\",\"CORP\\boss\"");
    sql().exec("UPDATE service_cifs SET workgroup=NULL");
    EXPECT_STREQ(ksdb_admin_users(h(), db()), plain);

    auto guests = [&] {
        return std::to_string(ksdb_guest_uid(h(), db())) + ":" + std::to_string(ksdb_guest_gid(h(), db()));
    };
    EXPECT_EQ(guests(), "0:0");  // no tables
    sql().exec("CREATE TABLE `$user`(id INT, uname TEXT); CREATE TABLE `$group`(id INT, gname TEXT);");
    EXPECT_EQ(guests(), "0:0");
    sql().exec("INSERT INTO `$user` VALUES(65534,'nobody'),(1000,'alice');"
               "INSERT INTO `$group` VALUES(65534,'nogroup'),(100,'users');");
    EXPECT_EQ(guests(), "65534:65534");
    sql().exec("INSERT INTO `$user` VALUES(99,'guest'); INSERT INTO `$group` VALUES(98,'guest');");
    EXPECT_EQ(guests(), "99:98");
}

// Guards: each domain-name rule and the order the rules are checked in.
TEST(MiscNames, CheckDomainNameAndUnits) {
    const std::pair<std::string, int> names[] = {
        {"nas1.local", 0},      {"my_nas-2.corp.example", 0}, {"", -EAGAIN},  {"-nas", 1},
        {".nas", 1},            {"nas 1", 2},                 {"n\xc3\xa4s", 2}, {"nas..local", 4},
        {"nas.local.", 4},      {"192.168.1.10", 4},          {"nas.123", 4},  {std::string(255, 'a'), 0},
        {std::string(256, 'a'), 3}, {std::string(300, 'a') + " ", 2}, {std::string(300, '1'), 3}};
    for (const auto &[name, rc] : names) EXPECT_EQ(ksdb_check_domain_name(name.c_str()), rc) << name;
    EXPECT_EQ(ksdb_check_domain_name(nullptr), -EAGAIN);
    EXPECT_EQ(ksdb_div_unit(1536, 0), 1u);
    EXPECT_EQ(ksdb_div_unit(1999, 1), 1u);
    EXPECT_EQ(ksdb_mul_unit(2, 0), 2048u);
    EXPECT_EQ(ksdb_mul_unit(2, 1), 2000u);
}

// Guards: the host name read outside the root, past its first line or 127 characters.
TEST_F(MiscTest, HostnameIsReadBelowTheDebugRoot) {
    EXPECT_EQ(ksdb_get_hostname(h()), nullptr);
    put("/etc/hostname", "");
    EXPECT_EQ(ksdb_get_hostname(h()), nullptr);
    put("/etc/hostname", "nas1\nsecond line\n");
    EXPECT_STREQ(ksdb_get_hostname(h()), "nas1");
    put("/etc/hostname", "nas2");
    EXPECT_STREQ(ksdb_get_hostname(h()), "nas2");
    put("/etc/hostname", std::string(200, 'h') + "\n");
    EXPECT_EQ(std::string(ksdb_get_hostname(h())), std::string(127, 'h'));
}

// Guards: a hostile device name split by the shell or running a command (a quoted value
// that a shell splits, expands or runs); a non-vfat mount found; an overlong (247),
// option-like or empty name looked up.
TEST_F(MiscTest, CheckVfatFindsVfatMountsAndPassesTheNameToGrepAsOneWord) {
    // ksdb_check_vfat runs "mount |grep <device> |grep vfat": a stand-in for
    // mount, first on PATH, prints a fixed table and records each run; the
    // test runs in its own folder, where an injected "touch" would leave a file.
    ScopedCwd cwd(tmp_.path());
    write_file(tmp_ / "bin/mount", "#!/bin/sh\necho run >>\"" + tmp_ / "mount-runs" + "\"\ncat \"" +
                                       tmp_ / "mount-table" + "\"\n");
    chmod((tmp_ / "bin/mount").c_str(), 0755);
    ScopedEnv path("PATH", tmp_ / "bin" + ":" + std::getenv("PATH"));
    auto runs = [&] { return lines(read_file(tmp_ / "mount-runs")).size(); };

    const std::string hostile = "x y;touch pwned1;$(touch pwned2)`touch pwned3`'\"|touch pwned4 &";
    const std::string ext4 = "/dev/sda1 on / type ext4 (rw)\n";
    write_file(tmp_ / "mount-table", ext4 + hostile + " on /mnt/odd type vfat (rw)\n");
    EXPECT_EQ(ksdb_check_vfat(h(), hostile.c_str()), 1);
    const std::string fits(222, 'd'), too_long(223, 'd');
    write_file(tmp_ / "mount-table",
               ext4 + "/dev/sdz1 on /mnt/usb type vfat (rw,noatime)\n" + fits + "1 on /mnt type vfat (rw)\n");
    EXPECT_EQ(ksdb_check_vfat(h(), "sdq\ntouch pwned1"), 0);
    EXPECT_EQ(ksdb_check_vfat(h(), "'; touch pwned2; '"), 0);
    for (const char *f : {"pwned1", "pwned2", "pwned3", "pwned4"}) EXPECT_FALSE(exists(tmp_ / f)) << f;
    EXPECT_STREQ(ksdb_shell_quote(h(), "it's"), "'it'\\''s'");  // the C form of the same quoting
    EXPECT_EQ(ksdb_check_vfat(h(), "/dev/sdz1"), 1);
    EXPECT_EQ(ksdb_check_vfat(h(), "/dev/sda1"), 0);
    EXPECT_EQ(ksdb_check_vfat(h(), fits.c_str()), 1);
    EXPECT_TRUE(contains(log(), "ksdb_check_vfat return: 1\n"));
    EXPECT_TRUE(contains(log(), "ksdb_check_vfat return: 0\n"));
    EXPECT_EQ(runs(), 6u);
    for (const std::string &name : {too_long, std::string(60, '\''), std::string("-r"), std::string("")})
        EXPECT_EQ(ksdb_check_vfat(h(), name.c_str()), 0) << name;
    EXPECT_EQ(ksdb_check_vfat(h(), nullptr), 0);
    EXPECT_EQ(runs(), 6u);
}

}  // namespace
