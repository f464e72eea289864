// Shares over AFP beyond their case folders: hostile values (read back by the
// section reader), the replacement rules, the server file's time, Time Machine.
#define KSDB_MODULE "test_afp"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "tests/support/share_tests.h"

#include <utime.h>

#include <filesystem>
#include <map>

using namespace ksdb_test;

namespace {

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
};

}  // namespace

// Guards: a hostile value written where the section reader reads more or other than
// it; a refusal that changes a file or does not name the row.
TEST_F(AfpTest, HostileValuesAreRefusedOrReadBackAsExactlyOneValue) {
    sql().exec(read_file(KSDB_TEST_DATA_DIR "/afp-hostile.sql"));
    const auto docs = [&] { return read_sections(at("/vol1/._share/docs/afp.conf")); };
    const auto stick_line = [&] { return get("/etc/quillfold/usb/access/custom/stick/netatalk"); };
    const std::vector<HostileColumn> columns = {
        {"share", "name", "id=2", "'pre", "nl cr nul [ ] % dq bs / ../ /../", [&](const std::string &v) {
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
    walk_hostile_values(root(), sql(), [&] { return export_afp(); }, [&] { return log(); }, columns);
}

// Guards: the server's file made, or touched before a good export (the case folder
// afp-share/own-file-in-the-way keeps the global files after a failure).
TEST_F(AfpTest, TheServerFileIsTouchedOnlyAfterASuccessfulExport) {
    sql().exec(read_file(KSDB_TEST_DATA_DIR "/afp-two-shares.sql"));
    EXPECT_EQ(export_afp(), 0);
    EXPECT_FALSE(exists(at("/etc/netatalk/afp.conf")));
    put("/etc/netatalk/afp.conf", "[Global]\n");
    const struct utimbuf old_times{1000, 1000};
    ASSERT_EQ(utime(at("/etc/netatalk/afp.conf").c_str(), &old_times), 0);
    std::remove(at("/vol1/._share/z/afp.conf").c_str());
    mkdirs(at("/vol1/._share/z/afp.conf/x"));  // a folder where the file goes
    EXPECT_EQ(export_afp(), KSDB_E_FILE);
    struct stat st;
    ASSERT_EQ(stat(at("/etc/netatalk/afp.conf").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime, 1000);
    std::filesystem::remove_all(at("/vol1/._share/z/afp.conf"));
    ASSERT_EQ(export_afp(), 0) << log();
    ASSERT_EQ(stat(at("/etc/netatalk/afp.conf").c_str(), &st), 0);
    EXPECT_GT(st.st_mtime, 1000);
    EXPECT_EQ(get("/etc/netatalk/afp.conf"), "[Global]\n");
}

// Guards: a Time Machine folder that is a file, missing or outside the root.
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
