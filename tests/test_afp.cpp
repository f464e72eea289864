// Shares over AFP, beyond the case folders of tests/cases/afp-share:
// hostile values in every guarded column (no netatalk checker runs offline:
// what is accepted is read back by the section reader), a lossless round
// trip through export and import with the USB import, the replacement
// rules, the server file's time, the Time Machine folder, and the number of
// statements an export runs.
#define KSDB_MODULE "test_afp"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "tests/support/share_tests.h"

#include <utime.h>

#include <filesystem>
#include <map>

using namespace ksdb_test;

namespace {

using Rows = std::vector<std::string>;
// "section/key" -> value, as the section reader hands them out.
using Keys = std::map<std::string, std::string>;

Keys read_sections(const std::string &path) {
    Keys out;
    ini_parse_file(path.c_str(),
                   [](void *user, const char *section, const char *name, const char *value) {
                       (*static_cast<Keys *>(user))[std::string(section) + "/" + name] = value;
                       return 1;
                   },
                   &out);
    return out;
}

class AfpTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        for (const char *v : {"/vol1/._share", "/USB/._share", "/media/._share"}) mkdirs(at(v));
    }
    int export_afp() { return ksdb_export(h(), db(), KSDB_CAT_AFP_SHARE); }
    int in_transaction(int (*step)(ksdb_handle *, sqlite3 *)) {
        EXPECT_EQ(ksdb_sql_begin(h(), db(), nullptr, KSDB_TAG), 0);
        const int rc = step(h(), db());
        EXPECT_EQ(ksdb_sql_commit(h(), db(), nullptr, KSDB_TAG), 0);
        return rc;
    }
    Rows settings() {
        Rows out = sql().rows("SELECT * FROM afp_share_option ORDER BY share_id");
        for (const char *t : {"user_acl", "group_acl"})
            for (const std::string &r : sql().rows(std::string("SELECT * FROM ") + t +
                                                   " WHERE proto='afp' ORDER BY 1,2"))
                out.push_back(std::string(t) + ":" + r);
        return out;
    }
};

}  // namespace

// Each hostile value in each guarded column is refused (status 4, nothing
// below the root changed, the row named) or read back by the section
// reader as exactly the one value intended.
TEST_F(AfpTest, HostileValuesAreRefusedOrReadBackAsExactlyOneValue) {
    sql().exec(
        "INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1),('USB','USB',1);"
        "INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1000,'alice',100,0,NULL),"
        "(1001,'fuser',100,0,NULL);"
        "INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL);"
        "INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES"
        "(1,'vol1/docs','vol1','docs','/vol1/docs',0,0),"
        "(2,'USB/stick','USB','stick','/USB/stick',0,0);"
        "INSERT INTO afp_share_option (share_id,available,afp_access,afp_guest_access,"
        "other_options,force_user) VALUES(1,1,'disabled',0,NULL,NULL),"
        "(2,1,'readonly',0,'ea:sys',1001);"
        "INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(1,1000,'afp',1,1),"
        "(2,1000,'afp',1,1);"
        "INSERT INTO group_acl (share_id,group_id,proto,read,write) VALUES(1,100,'afp',1,0)");
    const auto docs = [&] { return read_sections(at("/vol1/._share/docs/afp.conf")); };
    const auto stick_line = [&] { return get("/etc/quillfold/usb/access/custom/stick/netatalk"); };
    const std::vector<HostileColumn> columns = {
        {"share", "name", "id=2", "'pre", "nl cr nul [ ] % dq bs ../", [&](const std::string &v) {
             EXPECT_EQ(read_sections(at("/USB/._share/" + v + "/afp.conf"))[v + "/path"],
                       "/USB/stick");
             EXPECT_EQ(get("/etc/quillfold/usb/access/custom/" + v + "/netatalk"),
                       "\"/" + v + "\" \"" + v + "\" cnidscheme:dbd ea:sys rwlist:\"alice\",@admin "
                       "deny:\"guest\" forceuid:\"fuser\"\n");
         }},
        {"share", "path", "id=1", "'docs'", "nl cr nul ; # bs",
         [&](const std::string &v) { EXPECT_EQ(docs()["docs/path"], v); }},
        {"$user", "uname", "id=1000", "'1000'", "nl cr nul ; # % dq , bs",
         [&](const std::string &v) {
             EXPECT_EQ(docs()["docs/rwlist"], "\"" + v + "\",@admin");
             EXPECT_TRUE(contains(stick_line(), " rwlist:\"" + v + "\",@admin "));
         }},
        {"$group", "gname", "id=100", "'100'", "nl cr nul ; # % dq , bs",
         [&](const std::string &v) { EXPECT_EQ(docs()["docs/rolist"], "\"@" + v + "\""); }},
        {"afp_share_option", "other_options", "share_id=2", "'stick'", "nl cr nul",
         [&](const std::string &v) {
             EXPECT_TRUE(contains(stick_line(), " cnidscheme:dbd " + v + " rwlist:"));
         }},
        {"$user", "uname", "id=1001", "'1001'", "nl cr nul dq bs", [&](const std::string &v) {
             EXPECT_TRUE(contains(stick_line(), " forceuid:\"" + v + "\"\n"));
         }},
    };
    ASSERT_EQ(export_afp(), 0) << log();
    walk_hostile_values(root(), sql(), [&] { return export_afp(); }, [&] { return log(); }, columns,
                        {{"clean", ""}, {"nl", "\n"}, {"cr", "\r"}, {"nul", std::string(1, '\0')},
                         {"[", "["}, {"]", "]"}, {";", ";"}, {"#", "#"}, {"%", "%"}, {"dq", "\""},
                         {",", ","}, {"bs", "\\"}, {"$()", "$(id)"}, {"../", "../"}});
}

// Shares whose settings the files carry whole come back exactly: export,
// empty the option and access tables, import the volume and the USB shares.
TEST_F(AfpTest, LosslessSettingsSurviveExportAndImport) {
    sql().exec(
        "INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1),('media','media',0);"
        "INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1000,'alice',100,0,NULL),"
        "(1001,'bob',100,0,NULL);"
        "INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL),"
        "(101,'eng',0,NULL);"
        "INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES"
        "(1,'vol1/a','vol1','a','/vol1/a',0,0),(2,'vol1/b','vol1','b','/vol1/b',0,0),"
        "(3,'vol1/c','vol1','c','/vol1/c',0,0),(4,'vol1/d','vol1','d','/vol1/d',0,0),"
        "(5,'media/e','media','e','/media/e',0,0);"
        "INSERT INTO afp_share_option (share_id,available,afp_access,afp_guest_access,afp_fperm,"
        "afp_dperm) VALUES(1,1,'writeable',1,NULL,NULL),(2,1,'readonly',0,416,488),"
        "(3,1,'disabled',0,420,NULL),(4,0,'writeable',0,NULL,493),(5,1,'readonly',1,NULL,NULL);"
        "INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(1,1000,'afp',1,0),"
        "(2,1001,'afp',1,1),(3,1000,'afp',1,0),(3,1001,'afp',1,1),(5,1000,'afp',1,1);"
        "INSERT INTO group_acl (share_id,group_id,proto,read,write) VALUES(1,101,'afp',1,0),"
        "(2,100,'afp',1,1),(3,101,'afp',1,0),(3,100,'afp',1,1)");
    // The USB share has no folder: the volume import does not see it.
    for (const char *f : {"/vol1/a", "/vol1/b", "/vol1/c", "/vol1/d"}) mkdirs(at(f));
    ASSERT_EQ(export_afp(), 0) << log();
    const Rows before = settings();
    ASSERT_EQ(before.size(), 14u);
    sql().exec("DELETE FROM afp_share_option; DELETE FROM user_acl; DELETE FROM group_acl");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_AFP_SHARE), 0) << log();
    EXPECT_EQ(sql().scalar("SELECT count(*) FROM afp_share_option WHERE share_id=5"), "0");
    ASSERT_EQ(in_transaction(ksdb_afp_usb_share_import), 0) << log();
    EXPECT_EQ(settings(), before);
}

TEST_F(AfpTest, UsbImportReadsOnlyTheSharesUnderMediaAndMissingFilesAreNoError) {
    sql().exec("INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES"
               "(1,'media/stick','media','stick','/media/stick',0,0),"
               "(2,'vol1/data','vol1','data','/vol1/data',0,0)");
    EXPECT_EQ(in_transaction(ksdb_afp_usb_share_import), 0);  // no USB file at all
    put("/run/usb/netatalk/Shares.conf",
        "[stick]\n  path = /media/stick\n[data]\n  path = /vol1/data\n[esc]\n"
        "  path = /media/../vol1/data\n[gone]\n  path = /media/gone\n");
    put("/media/._share/stick/afp.conf", "[stick]\n  available = 0\n  read only = yes\n");
    put("/vol1/._share/data/afp.conf", "[data]\n  available = 1\n");
    ASSERT_EQ(in_transaction(ksdb_afp_usb_share_import), 0) << log();
    EXPECT_EQ(sql().rows("SELECT share_id,available,afp_access FROM afp_share_option"),
              Rows{"1|0|readonly"});
}

// A share's own file that cannot be replaced ends the export with 5: the
// files replaced before it stay, neither global file is replaced.  The
// server's main file is touched only after a good export, and never made.
TEST_F(AfpTest, AFailedOwnFileKeepsTheGlobalFilesAndTheServerFileIsTouchedAfterSuccess) {
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1);"
               "INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES"
               "(1,'vol1/a','vol1','a','/vol1/a',0,0),(2,'vol1/z','vol1','z','/vol1/z',0,0);"
               "INSERT INTO afp_share_option (share_id,afp_access,afp_guest_access) VALUES"
               "(1,'writeable',1),(2,'writeable',1)");
    EXPECT_EQ(export_afp(), 0);
    EXPECT_FALSE(exists(at("/etc/netatalk/afp.conf")));
    put("/etc/netatalk/afp.conf", "[Global]\n");
    put("/etc/quillfold/netatalk/Shares.conf", "old\n");
    const struct utimbuf old_times{1000, 1000};
    ASSERT_EQ(utime(at("/etc/netatalk/afp.conf").c_str(), &old_times), 0);
    sql().exec("UPDATE share SET path='/vol1/new' WHERE id=1");
    std::remove(at("/vol1/._share/z/afp.conf").c_str());
    mkdirs(at("/vol1/._share/z/afp.conf/x"));  // a folder where the file goes
    EXPECT_EQ(export_afp(), KSDB_E_FILE);
    EXPECT_TRUE(contains(get("/vol1/._share/a/afp.conf"), "  path = /vol1/new\n"));
    EXPECT_EQ(get("/etc/quillfold/netatalk/Shares.conf"), "old\n");
    struct stat st;
    ASSERT_EQ(stat(at("/etc/netatalk/afp.conf").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime, 1000);
    std::filesystem::remove_all(at("/vol1/._share/z/afp.conf"));
    ASSERT_EQ(export_afp(), 0) << log();
    ASSERT_EQ(stat(at("/etc/netatalk/afp.conf").c_str(), &st), 0);
    EXPECT_GT(st.st_mtime, 1000);
    EXPECT_EQ(get("/etc/netatalk/afp.conf"), "[Global]\n");
}

TEST_F(AfpTest, TheTimeMachineFolderIsTheHomeVolumesOwn) {
    EXPECT_EQ(ksdb_is_timemachine_path_valid(h(), db()), 0);
    EXPECT_TRUE(contains(log(), "(error) home_volume_id is empty!\n"));
    sql().exec("INSERT INTO account_default (home_volume_id) VALUES('vol1')");
    EXPECT_EQ(ksdb_is_timemachine_path_valid(h(), db()), 0);
    put("/vol1/.timemachine", "a file, not a folder\n");
    EXPECT_EQ(ksdb_is_timemachine_path_valid(h(), db()), 0);
    std::remove(at("/vol1/.timemachine").c_str());
    mkdirs(at("/vol1/.timemachine"));
    EXPECT_EQ(ksdb_is_timemachine_path_valid(h(), db()), 1);
    // A volume name that would lead out of the root is not looked at.
    mkdirs(tmp_ / ".timemachine");
    sql().exec("UPDATE account_default SET home_volume_id='..'");
    EXPECT_EQ(ksdb_is_timemachine_path_valid(h(), db()), 0);
    sql().exec("DROP TABLE account_default");
    EXPECT_EQ(ksdb_is_timemachine_path_valid(h(), db()), 0);
    EXPECT_TRUE(contains(log(), "(error) Failed DB Query for SELECT 'account_default'\n"));
}

// The access entries are read once per export, not once per share: the
// statements an export runs do not grow with the shares.
TEST_F(AfpTest, AnExportRunsTheSameStatementsForTenOrFortyShares) {
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1);"
               "INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES"
               "(1000,'alice',100,0,NULL)");
    auto statements = [&](int shares) {
        for (int i = 1; i <= shares; ++i) {
            const std::string id = std::to_string(i), name = "'s" + id + "'";
            sql().exec("INSERT OR IGNORE INTO share (id,zfs_name,volume_id,name,path,user_id,"
                       "group_id) VALUES(" + id + ",'x','vol1'," + name + ",'/vol1/s" + id +
                       "',0,0);INSERT OR IGNORE INTO afp_share_option (share_id,afp_access,"
                       "afp_guest_access) VALUES(" + id + ",'disabled',0);INSERT OR IGNORE INTO "
                       "user_acl (share_id,user_id,proto,read,write) VALUES(" + id +
                       ",1000,'afp',1,1)");
        }
        return selects_during(h(), [&] { EXPECT_EQ(export_afp(), 0); });
    };
    const int ten = statements(10);
    EXPECT_GT(ten, 0);
    EXPECT_EQ(statements(40), ten);
}
