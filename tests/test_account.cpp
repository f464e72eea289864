// Local users and groups beyond the case folders: the shadow suite's own
// checkers on the generated files, the round trip, the temporary copies of
// the secret files, delete marks and domain rows, locked passwords, the
// account defaults file rewritten by the import, and the look-ups.
#include "tests/support/test_support.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

// Accounts that agree with each other, as the appliance keeps them.
const char kPasswd[] =
    "root:x:0:0:root:/root:/bin/bash\n"
    "admin:x:98:98:Appliance administrator:/home/admin:/bin/bash\n"
    "alice:x:1000:100:alice@example.com:/home/alice:/bin/bash\n"
    "bob:x:1001:100::/home/bob:/bin/false\n"
    "guest:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin\n"
    "nobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin\n";
const char kShadow[] =
    "root:$6$rt$RootHash:19000:0:99999:7:::\n"
    "admin:$6$ad$AdminHash:19001:0:99999:7:::\n"
    "alice:$6$al$AliceHash:19500:0:99999:7:::\n"
    "bob:!:19501:0:99999:7:::\n"
    "guest:*:18000:0:99999:7:::\n"
    "nobody:*:18000:0:99999:7:::\n";
const char kGroup[] =
    "root:x:0:\n"
    "admin:x:98:admin\n"
    "users:x:100:alice,bob\n"
    "staff:x:1100:alice,bob\n"
    "guest:x:65534:\n"
    "nogroup:x:65534:\n";
const char kGshadow[] =
    "root:!::\n"
    "admin:!::admin\n"
    "users:!::alice,bob\n"
    "staff:!::alice,bob\n"
    "guest:!::\n"
    "nogroup:!::\n";
const char kRecovery[] = "email!!a@example.com\nquestion!!Q?\nanswer!!A\nenabled!!0\nmethod!!mail\n";

class AccountTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0) << log(); }
    void put_accounts() {
        put("/etc/passwd", kPasswd);
        put("/etc/shadow", kShadow);
        put("/etc/group", kGroup);
        put("/etc/gshadow", kGshadow);
        put("/etc/quillfold/passwordrecovery.conf", kRecovery);
    }
    std::vector<std::string> tmp_files() {
        std::vector<std::string> out;
        for (const std::string &n : lines(read_file_list(at("/tmp")))) out.push_back(n);
        return out;
    }
    static std::string read_file_list(const std::string &dir) {
        std::string names;
        if (DIR *d = opendir(dir.c_str())) {
            while (dirent *e = readdir(d))
                if (e->d_name[0] != '.') names += std::string(e->d_name) + "\n";
            closedir(d);
        }
        return names;
    }
};

TEST_F(AccountTest, RoundTripGivesTheFilesBackByteForByte) {
    put_accounts();
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    for (const char *f : {"/etc/passwd", "/etc/shadow", "/etc/group", "/etc/gshadow"})
        write_file(at(f), "stale\n");
    ASSERT_EQ(ksdb_account_export(h(), db()), 0) << log();
    EXPECT_EQ(get("/etc/passwd"), kPasswd);
    EXPECT_EQ(get("/etc/shadow"), kShadow);
    EXPECT_EQ(get("/etc/group"), kGroup);
    EXPECT_EQ(get("/etc/gshadow"), kGshadow);
    EXPECT_EQ(get("/etc/quillfold/passwordrecovery.conf"), kRecovery);
    EXPECT_EQ(tmp_files(), std::vector<std::string>{}) << "temporary files left behind";
    // The writer keeps the replaced file beside the new one.
    EXPECT_EQ(get("/etc/shadow.bak"), "stale\n");
}

TEST_F(AccountTest, RoundTripChangesOnlyWhatTheFormatDoesNotKeep) {
    // Out of id order, a full name with the e-mail, password ageing, a
    // user without a shadow line, a member that is no user, members out of
    // id order (they come back ordered by user id).
    put("/etc/passwd",
        "bob:x:1001:100:Bob B,bob@example.com,room 4:/home/bob:/bin/bash\n"
        "root:x:0:0:root:/root:/bin/bash\n"
        "ghost:x:1002:100::/home/ghost:/bin/bash\n"
        "al:x:1000:100::/home/al:/bin/bash\n");
    put("/etc/shadow", "bob:$6$b$B:19501:1:60:14:30:20000:\nroot:$6$r$R:19000:0:99999:7:::\n"
                       "al:$6$a$A:19000:0:99999:7:::\n");
    put("/etc/group", "root:x:0:\nusers:x:100:ghost,bob,al\n");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    ASSERT_EQ(ksdb_account_export(h(), db()), 0) << log();
    EXPECT_EQ(get("/etc/passwd"),
              "root:x:0:0:root:/root:/bin/bash\n"
              "al:x:1000:100::/home/al:/bin/bash\n"
              "bob:x:1001:100:bob@example.com:/home/bob:/bin/bash\n");
    EXPECT_EQ(get("/etc/shadow"), "root:$6$r$R:19000:0:99999:7:::\nal:$6$a$A:19000:0:99999:7:::\n"
                                  "bob:$6$b$B:19501:0:99999:7:::\n");
    EXPECT_EQ(get("/etc/group"), "root:x:0:\nusers:x:100:al,bob\n");
}

TEST_F(AccountTest, GeneratedFilesPassTheShadowSuiteCheckers) {
    if (geteuid() != 0 || !have_program("pwck"))
        GTEST_SKIP() << "pwck -R and grpck -R need root and the passwd package";
    put_accounts();
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    sql().exec("INSERT INTO `$user` (id,uname,passwd,email,home,group_id,shell,is_privileged,"
               "last_changed) VALUES(1002,'carol','$6$c$C','','/home/carol',1100,'/bin/sh',0,"
               "'19000'),(1003,'gone','x','','/home/gone',100,'/bin/sh',-1,'19000')");
    sql().exec("INSERT INTO `$group_has_user` VALUES(1002,100),(1003,100)");
    ASSERT_EQ(ksdb_account_export(h(), db()), 0) << log();
    std::string out;
    EXPECT_EQ(run_checker("check-accounts.sh", root(), &out), 0) << out;
    // The checker sees a broken file: a group member nobody knows.
    put("/etc/group", get("/etc/group") + "extra:x:3000:nosuchuser\n");
    put("/etc/gshadow", get("/etc/gshadow") + "extra:!::nosuchuser\n");
    EXPECT_NE(run_checker("check-accounts.sh", root(), &out), 0);
}

// The temporary files of shadow and gshadow hold every password hash: they
// are made exclusively with mode 0600, whatever the umask.
std::map<std::string, unsigned> g_temp_modes;
void record_temp_mode(void *, const char *target, const char *tmp_path, int phase, int) {
    struct stat st {};
    if (phase == 0 && stat(tmp_path, &st) == 0)
        g_temp_modes[std::string(target).substr(std::string(target).rfind('/') + 1)] =
            st.st_mode & 07777;
}

TEST_F(AccountTest, SecretFilesAreNeverReadableByOthers) {
    put_accounts();
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    // New content, so that the writer makes temporary files.
    put("/etc/shadow", "stale\n");
    put("/etc/gshadow", "stale\n");
    g_temp_modes.clear();
    ksdb_observer obs{};
    obs.file = record_temp_mode;
    ksdb_set_observer(&obs);
    mode_t old = umask(0);
    int rc = ksdb_account_export(h(), db());
    umask(old);
    ksdb_set_observer(nullptr);
    ASSERT_EQ(rc, 0) << log();
    ASSERT_TRUE(g_temp_modes.count("shadow") && g_temp_modes.count("gshadow"));
    EXPECT_EQ(g_temp_modes["shadow"] & 077, 0u);
    EXPECT_EQ(g_temp_modes["gshadow"] & 07, 0u);
    struct stat st {};
    ASSERT_EQ(stat(at("/etc/shadow").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0400u);
    ASSERT_EQ(stat(at("/etc/gshadow").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
}

TEST_F(AccountTest, ExportDropsDeleteMarkedRowsAndLeavesDomainRows) {
    sql().exec("INSERT INTO `$user` (id,uname,passwd,email,home,group_id,shell,is_privileged,rid) "
               "VALUES(1000,'alice','h','','/home/alice',100,'/bin/sh',0,NULL),"
               "(1001,'gone','h','','/home/gone',100,'/bin/sh',-1,NULL),"
               "(200001,'jdoe','h','','/home/jdoe',100,'/bin/sh',0,1105)");
    sql().exec("INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'users',0,NULL),"
               "(1200,'old',-2,NULL),(200513,'Domain Users',0,513)");
    ASSERT_EQ(ksdb_account_export(h(), db()), 0) << log();
    EXPECT_EQ(sql().column("SELECT uname FROM `$user` ORDER BY id"),
              (std::vector<std::string>{"alice", "jdoe"}));
    EXPECT_EQ(sql().column("SELECT gname FROM `$group` ORDER BY id"),
              (std::vector<std::string>{"users", "Domain Users"}));
    EXPECT_EQ(get("/etc/group"), "users:x:100:\n");
}

TEST_F(AccountTest, ImportAsksPasswdForTheLockOfEachStoredName) {
    put_accounts();
    ScopedEnv locked("KSDB_FAKE_PASSWD_STATUS", "L");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_EQ(sql().scalar("SELECT count(*) FROM `$user` WHERE is_locked=1"), "5");
    // "nobody" is asked about as the name it is stored under; every call
    // names the debug root, so the machine's own accounts are never read.
    std::vector<FakeCall> want;
    for (const char *n : {"root", "admin", "alice", "bob", "guest", "guest"})
        want.push_back({"passwd", "-S", n, "-R", root()});
    EXPECT_EQ(fake_calls("passwd"), want);
}

TEST_F(AccountTest, ANameReachesTheCommandAsOneWord) {
    const std::string name = "x'$(touch " + root() + "/pwned);y z";
    put("/etc/passwd", name + ":x:1000:100::/home/x:/bin/sh\n");
    put("/etc/shadow", name + ":!:1:0:99999:7:::\n");
    put("/etc/group", "users:x:100:\n");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_EQ(fake_calls("passwd"), (std::vector<FakeCall>{{"passwd", "-S", name, "-R", root()}}));
    EXPECT_FALSE(exists(at("/pwned")));
}

TEST_F(AccountTest, MissingDefaultsFileIsWrittenBackWithTheFirstVolume) {
    put_accounts();
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('media','media',0),"
               "('vol1','vol1',1024)");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_EQ(get("/etc/quillfold/account.conf"),
              "home_volume!!vol1\ndiskquota_warn!!80\ngroup!!users\n"
              "home_folder_capacity_limit!!0\ngroup_membership!!users\n"
              "private_time_machine!!0\nprivate_time_machine_space!!500\n"
              "snapshot_protection!!0\nnext_uid!!100\n");
    struct stat st {};
    ASSERT_EQ(stat(at("/etc/quillfold/account.conf").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_uid, geteuid() == 0 ? 98u : st.st_uid);
    EXPECT_NE(log().find("/etc/quillfold/account.conf is updated."), std::string::npos);
}

TEST_F(AccountTest, AVanishedHomeVolumeIsReassignedAndWrittenBack) {
    put_accounts();
    put("/etc/quillfold/account.conf", "home_volume!!gone\ngroup!!staff\nnext_uid!!1200\n");
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol2','vol2',1024)");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_NE(log().find("Default volume (gone) is not exist,  But found 1 volume(s). Use vol2 "
                         "(id=vol2) as home volume."),
              std::string::npos);
    EXPECT_EQ(get("/etc/quillfold/account.conf"),
              "home_volume!!vol2\ndiskquota_warn!!80\ngroup!!staff\n"
              "home_folder_capacity_limit!!0\ngroup_membership!!0\n"
              "private_time_machine!!0\nprivate_time_machine_space!!500\n"
              "snapshot_protection!!0\nnext_uid!!1200\n");
    // Without any volume the file is kept as it is.
    put("/etc/quillfold/account.conf", "home_volume!!gone\n");
    sql().exec("DELETE FROM _volume");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_EQ(get("/etc/quillfold/account.conf"), "home_volume!!gone\n");
}

TEST_F(AccountTest, HomeFoldersAreMadeForOrdinaryUsersOnly) {
    put_accounts();
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    clear_fake_calls();
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 1000), 0) << log();
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 98), 0) << log();
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 0), KSDB_E_INVAL);
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 99), KSDB_E_INVAL);
    EXPECT_NE(log().find("Can't create home directory for system reserved users!"),
              std::string::npos);
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 4242), KSDB_E_INVAL);
    EXPECT_NE(log().find("Cannot find uid 4242!"), std::string::npos);
    // Known to the database but not to the system's user list.
    sql().exec("INSERT INTO `$user` (id,uname,is_privileged) VALUES(1500,'dbonly',0)");
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 1500), KSDB_E_INVAL);
    EXPECT_EQ(fake_calls(), (std::vector<FakeCall>{{"mkhomedir_helper", "alice"},
                                                   {"mkhomedir_helper", "admin"}}));
    ScopedEnv fail("KSDB_FAKE_FAIL", "mkhomedir_helper");
    EXPECT_EQ(ksdb_create_user_home(h(), db(), 1000), KSDB_E_COMMAND);
}

TEST_F(AccountTest, LookUps) {
    put_accounts();
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ACCOUNT), 0) << log();
    EXPECT_EQ(ksdb_find_user_id(h(), db(), 1000), 1);
    EXPECT_EQ(ksdb_find_user_id(h(), db(), 1234), 0);
    char *name = nullptr;
    EXPECT_EQ(ksdb_get_user_name(h(), db(), 65534, &name), 0);
    EXPECT_STREQ(name, "guest");
    EXPECT_EQ(ksdb_get_user_name(h(), db(), 1234, &name), KSDB_E_INVAL);
    EXPECT_EQ(name, nullptr);
    mkdirs(at("/home/alice"));
    EXPECT_EQ(ksdb_user_home_exist(h(), db(), 1000), 1);
    EXPECT_EQ(ksdb_user_home_exist(h(), db(), 1001), 0);
    EXPECT_NE(log().find("Home directory /home/bob does not exist!"), std::string::npos);
    char home[64];
    EXPECT_EQ(ksdb_account_get_homedir("root", home, sizeof home), 0);
    EXPECT_STREQ(home, "/root");
    EXPECT_EQ(ksdb_account_get_homedir("root", nullptr, 10), KSDB_E_INVAL);
}

TEST_F(AccountTest, HomeFoldersOnTheHomeVolumeAreMatchedToDomainUsers) {
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024)");
    sql().exec("INSERT INTO account_default (home_volume_id) VALUES('vol1')");
    sql().exec("INSERT INTO `$user` (id,uname,is_privileged,rid) VALUES(200001,'jdoe',0,1105),"
               "(1000,'alice',0,NULL)");
    for (const char *d : {"/home/vol1/jdoe", "/home/vol1/alice"}) mkdirs(at(d));
    ASSERT_EQ(ksdb_import_users_with_existing_homes(h(), db()), 0) << log();
    EXPECT_NE(log().find("The user of the home folder '/home/vol1/jdoe' is found"),
              std::string::npos);
    EXPECT_NE(log().find("Cannot find user of the home folder '/home/vol1/alice'"),
              std::string::npos);
}

}  // namespace
