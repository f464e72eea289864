// Local users and groups beyond the case folders: the shadow suite's checkers,
// secret temporary files, delete marks, locks, the defaults file, home folders.
#include "tests/support/case_runner.h"
#include "tests/support/test_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

using namespace ksdb_test;

namespace {

const std::string kWhole = std::string(KSDB_CASES_DIR) + "/account-export/whole";

class AccountTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0) << log(); }
    // The account files of the whole-export case, which agree with each other.
    void put_accounts() { copy_tree(kWhole + "/expect", root()); }
};

// Guards: files the shadow suite's checkers refuse (they refuse a member nobody knows).
TEST_F(AccountTest, GeneratedFilesPassTheShadowSuiteCheckers) {
    if (geteuid() != 0 || !have_program("pwck"))
        GTEST_SKIP() << "pwck -R and grpck -R need root and the passwd package";
    put_accounts();
    std::string out;
    EXPECT_EQ(run_checker("check-accounts.sh", root(), &out), 0) << out;
    put("/etc/group", get("/etc/group") + "extra:x:3000:nosuchuser\n");
    put("/etc/gshadow", get("/etc/gshadow") + "extra:!::nosuchuser\n");
    EXPECT_NE(run_checker("check-accounts.sh", root(), &out), 0);
}

// Guards: the temporary copies of shadow and gshadow (every hash) readable
// by others under umask 0; the files' own modes; delete-marked rows left in the
// tables by the export; domain rows dropped.
std::map<std::string, unsigned> g_temp_modes;

TEST_F(AccountTest, SecretFilesAreNeverReadableByOthersAndDeleteMarkedRowsGo) {
    sql().exec(read_file(kWhole + "/db.sql"));
    sql().exec("INSERT INTO `$user` (id,uname,is_privileged,rid) VALUES(200001,'jdoe',0,1105)");
    ksdb_observer obs{};
    obs.file = [](void *, const char *target, const char *tmp_path, int phase, int) {
        struct stat st {};
        if (phase == 0 && stat(tmp_path, &st) == 0)
            g_temp_modes[std::strrchr(target, '/') + 1] = st.st_mode & 07777;
    };
    ksdb_set_observer(&obs);
    const mode_t old = umask(0);
    const int rc = ksdb_account_export(h(), db());
    umask(old);
    ksdb_set_observer(nullptr);
    ASSERT_EQ(rc, 0) << log();
    ASSERT_TRUE(g_temp_modes.count("shadow") && g_temp_modes.count("gshadow"));
    EXPECT_EQ(g_temp_modes["shadow"] & 077, 0u);
    EXPECT_EQ(g_temp_modes["gshadow"] & 07, 0u);
    EXPECT_EQ(sql().scalar("SELECT group_concat(uname) FROM (SELECT uname FROM `$user` ORDER BY id)"),
              "root,admin,alice,bob,guest,jdoe");
    EXPECT_EQ(sql().scalar("SELECT group_concat(gname) FROM (SELECT gname FROM `$group` ORDER BY id)"),
              "root,admin,users,staff,guest,Domain Users");
}

// Guards: the lock asked of the machine's accounts (no "-R"), of another name, split
// by a shell; the defaults file not written back with the first real volume, a
// vanished home volume kept, the file changed without a volume to take; its owner
// and mode; home folders for reserved or unknown ids; a failing helper; the
// look-ups; a home folder on the home volume matched to a local user.
TEST_F(AccountTest, ImportAsksPasswdForEachLockWritesTheDefaultsBackAndMakesHomeFolders) {
    put_accounts();
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('media','media',0),('vol1','vol1',1024)");
    ScopedEnv locked("KSDB_FAKE_PASSWD_STATUS", "L");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_EQ(sql().scalar("SELECT count(*) FROM `$user` WHERE is_locked=1"), "5");
    std::vector<FakeCall> want;
    for (const char *n : {"root", "admin", "alice", "bob", "guest", "guest"})  // "nobody" is stored as guest
        want.push_back({"passwd", "-S", n, "-R", root()});
    EXPECT_EQ(fake_calls("passwd"), want);
    const std::string conf = KSDB_TEST_DATA_DIR "/account-defaults-written-back/";
    EXPECT_EQ(get("/etc/quillfold/account.conf"), read_file(conf + "first-volume"));
    struct stat st {};
    ASSERT_EQ(stat(at("/etc/quillfold/account.conf").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_uid, 98u);
    EXPECT_TRUE(contains(log(), "/etc/quillfold/account.conf is updated."));

    put("/etc/quillfold/account.conf", "home_volume!!gone\ngroup!!staff\nnext_uid!!1200\n");
    sql().exec(
        "DELETE FROM _volume WHERE id='vol1'; INSERT INTO _volume (id,lv_name,blk_size) "
        "VALUES('vol2','vol2',1024)");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_TRUE(contains(
        log(),
        "Default volume (gone) is not exist,  But found 1 volume(s). Use vol2 (id=vol2) as home volume."));
    EXPECT_EQ(get("/etc/quillfold/account.conf"), read_file(conf + "vanished-volume"));
    put("/etc/quillfold/account.conf", "home_volume!!gone\n");
    sql().exec("DELETE FROM _volume");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_EQ(get("/etc/quillfold/account.conf"), "home_volume!!gone\n");

    // Home folders and the look-ups.
    clear_fake_calls();
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 1000), 0) << log();
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 98), 0) << log();
    for (unsigned id : {0u, 99u, 4242u}) EXPECT_EQ(ksdb_create_user_home(h(), db(), id), KSDB_E_INVAL) << id;
    EXPECT_TRUE(contains(log(), "Can't create home directory for system reserved users!"));
    EXPECT_TRUE(contains(log(), "Cannot find uid 4242!"));
    sql().exec("INSERT INTO `$user` (id,uname,is_privileged) VALUES(1500,'dbonly',0)");  // not in passwd
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 1500), KSDB_E_INVAL);
    EXPECT_EQ(fake_calls(),
              (std::vector<FakeCall>{{"mkhomedir_helper", "alice"}, {"mkhomedir_helper", "admin"}}));
    {
        ScopedEnv fail("KSDB_FAKE_FAIL", "mkhomedir_helper");
        EXPECT_EQ(ksdb_create_user_home(h(), db(), 1000), KSDB_E_COMMAND);
    }
    EXPECT_EQ(ksdb_find_user_id(h(), db(), 1000), 1);
    EXPECT_EQ(ksdb_find_user_id(h(), db(), 1234), 0);
    char *uname = nullptr;
    EXPECT_EQ(ksdb_get_user_name(h(), db(), 65534, &uname), 0);
    EXPECT_STREQ(uname, "guest");
    EXPECT_EQ(ksdb_get_user_name(h(), db(), 1234, &uname), KSDB_E_INVAL);
    EXPECT_EQ(uname, nullptr);
    mkdirs(at("/home/alice"));
    EXPECT_EQ(ksdb_user_home_exist(h(), db(), 1000), 1);
    EXPECT_EQ(ksdb_user_home_exist(h(), db(), 1001), 0);
    EXPECT_TRUE(contains(log(), "Home directory /home/bob does not exist!"));
    char home[64];
    EXPECT_EQ(ksdb_account_get_homedir("root", home, sizeof home), 0);
    EXPECT_STREQ(home, "/root");
    EXPECT_EQ(ksdb_account_get_homedir("root", nullptr, 10), KSDB_E_INVAL);

    // A home folder on the home volume is matched to a domain user, never a local one.
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);"
               "DELETE FROM account_default; INSERT INTO account_default (home_volume_id) VALUES('vol1');"
               "INSERT INTO `$user` (id,uname,is_privileged,rid) VALUES(200001,'jdoe',0,1105)");
    for (const char *d : {"/home/vol1/jdoe", "/home/vol1/alice"}) mkdirs(at(d));
    ASSERT_EQ(ksdb_import_users_with_existing_homes(h(), db()), 0) << log();
    EXPECT_TRUE(contains(log(), "The user of the home folder '/home/vol1/jdoe' is found"));
    EXPECT_TRUE(contains(log(), "Cannot find user of the home folder '/home/vol1/alice'"));

    // A name the shell would split or run is handed to passwd as one word.
    clear_fake_calls();
    const std::string name = "x'$(touch " + root() + "/pwned);y z";
    put("/etc/passwd", name + ":x:1000:100::/home/x:/bin/sh\n");
    put("/etc/shadow", name + ":!:1:0:99999:7:::\n");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_EQ(fake_calls("passwd"), (std::vector<FakeCall>{{"passwd", "-S", name, "-R", root()}}));
    EXPECT_FALSE(exists(at("/pwned")));
}

}  // namespace
