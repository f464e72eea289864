// Shares over rsync beyond their case folders: hostile values read back by the
// daemon's own reader (check-rsyncd.sh) and the importer.
#define KSDB_MODULE "test_rsync"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "tests/support/share_tests.h"

using namespace ksdb_test;

namespace {

class RsyncTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        mkdirs(at("/etc/quillfold/usb/._share"));
    }
    int export_rsync() { return ksdb_export(h(), db(), KSDB_CAT_RSYNC); }
    // The modules the daemon lists from the generated file, "name|comment"
    // each; the daemon's checker must accept the file.
    Rows daemon_lists() {
        std::string out;
        EXPECT_EQ(run_checker("check-rsyncd.sh", at("/etc/quillfold/rsync/Shares.conf"), &out), 0) << out;
        Rows modules;
        for (const std::string &l : lines(out)) {
            const size_t tab = l.find('\t');
            if (tab == std::string::npos) continue;
            std::string name = l.substr(0, tab);
            while (!name.empty() && name.back() == ' ') name.pop_back();
            modules.push_back(name + "|" + l.substr(tab + 1));
        }
        return modules;
    }
};

}  // namespace

// Guards: a hostile value written where the daemon or the importer reads other than
// it; a refusal that changes or removes a file or does not name the row.
TEST_F(RsyncTest, HostileValuesAreRefusedOrReadBackAsExactlyOneValue) {
    if (!have_program("rsync")) GTEST_SKIP() << "rsync is not installed (scripts/setup-deps)";
    sql().exec(read_file(KSDB_TEST_DATA_DIR "/rsync-hostile.sql"));
    put("/etc/quillfold/rsync/secrets/docs", "old:pw\n");  // must survive a refusal
    const auto reimported = [&](const char *query) {
        sql().exec("DELETE FROM rsync_user_password_acl; DELETE FROM host_acl");
        EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_RSYNC), 0) << log();
        return sql().rows(query);
    };
    const std::vector<HostileColumn> columns = {
        {"share", "name", "id=1", "'pre", "nl cr nul tab [ ] % / ../ /../ bs", [&](const std::string &v) {
             EXPECT_EQ(daemon_lists(), (Rows{v + "|Files", "docs|"}));
             EXPECT_EQ(get("/etc/quillfold/rsync/secrets/" + v), "alice:secret\n");
         }},
        {"share", "path", "id=1", "'public'", "nl cr nul = % bs", [&](const std::string &v) {
             EXPECT_TRUE(contains(get("/etc/quillfold/rsync/Shares.conf"), "  path = " + v + "\n"));
         }},
        {"share", "comment", "id=1", "'public'", "nl cr nul bs", [&](const std::string &v) {
             EXPECT_EQ(daemon_lists(), (Rows{"public|" + v, "docs|"}));
         }},
        {"host", "name", "id=1", "'1'", "nl cr nul = , dq sp tab bs", [&](const std::string &v) {
             EXPECT_EQ(reimported("SELECT H.name FROM host_acl A INNER JOIN host H ON "
                                  "H.id=A.host_id"),
                       Rows{v});
         }},
        {"rsync_user_password_acl", "user", "share_id=1", "'public/pre", "nl cr nul : = , sp tab bs",
         [&](const std::string &v) {
             EXPECT_EQ(reimported("SELECT user,password FROM rsync_user_password_acl"),
                       Rows{v + "|secret"});
         }},
        {"rsync_user_password_acl", "password", "share_id=1", "'public/alice'", "nl cr nul :",
         [&](const std::string &v) {
             EXPECT_EQ(reimported("SELECT user,password FROM rsync_user_password_acl"),
                       Rows{"alice|" + v});
         }},
    };
    ASSERT_EQ(export_rsync(), 0) << log();
    // Every file the export writes passes the daemon's checker.
    const auto exported = [&] {
        const int rc = export_rsync();
        if (rc == 0) daemon_lists();
        return rc;
    };
    // The importer may have replaced the entries a check read back.
    const auto restore = [&] {
        sql().exec("DELETE FROM rsync_user_password_acl; DELETE FROM host_acl;"
                   "INSERT INTO rsync_user_password_acl (share_id,user,password) VALUES(1,'alice',"
                   "'secret');INSERT INTO host_acl (share_id,host_id,proto,read,write) VALUES(1,1,"
                   "'rsync',1,1)");
    };
    walk_hostile_values(root(), sql(), exported, [&] { return log(); }, columns, restore);
}
