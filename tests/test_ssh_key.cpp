// SSH public keys beyond the case folders: the parser, a broken store, a
// planted .ssh link, the look-ups.
#include "tests/support/test_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

// Public keys made with ssh-keygen for these tests, with the MD5
// fingerprint "ssh-keygen -l -E md5" gives for the second.
const std::string kEd =
    "AAAAC3NzaC1lZDI1NTE5AAAAIGz4+KYb3MPMaW2u7DM+tlh+DY0lQD1maKsoDw/m40jO";
const std::string kAdmin = "AAAAC3NzaC1lZDI1NTE5AAAAIKxo70ySongRVyUMvSiDBpPdnpGULY2q1sjM6BTKubxo";
const std::string kAdminPrint = "61:ab:16:d1:b9:aa:1e:c0:c9:8b:2a:c1:4d:be:d7:e1";

class SshKeyTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0) << log();
        sql().exec("INSERT INTO `$user` (id,uname,home,group_id,is_privileged) VALUES"
                   "(0,'root','/root',0,1),(98,'admin','/home/admin',98,1),"
                   "(1000,'alice','/home/alice',100,0)");
    }
    std::vector<ksdb_ssh_public_key> parse(const std::string &text, int want_rc = 0) {
        put("/upload/keys", text);
        ksdb_ssh_public_key *keys = nullptr;
        int n = -1;
        EXPECT_EQ(ksdb_parse_ssh_public_key_file(h(), "/upload/keys", &keys, &n), want_rc) << log();
        return keys ? std::vector<ksdb_ssh_public_key>(keys, keys + n)
                    : std::vector<ksdb_ssh_public_key>{};
    }
    static std::string str(const char *s) { return s ? s : "<NULL>"; }
};

// Guards: the command option read wrongly; a key written back wrongly (the case
// folder ssh-key/replisync-key-lines holds the other lines of a key file); a
// converted copy left behind; a bad foreign key accepted.
TEST_F(SshKeyTest, ParserReadsTheCommandOptionWritesTheKeyBackAndConvertsForeignFormats) {
    auto keys = parse("command=\"/usr/bin/rsync --server\" ssh-ed25519 " + kEd + " alice@laptop\n"
                      "ssh-ed25519 " + kAdmin + "\n");
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(str(keys[0].command) + "|" + str(keys[1].command), "/usr/bin/rsync --server|<NULL>");
    EXPECT_EQ(str(ksdb_ssh_public_key_to_string(h(), &keys[0])),
              "command=\"/usr/bin/rsync --server\" ssh-ed25519 " + kEd + " alice@laptop");
    EXPECT_EQ(str(ksdb_ssh_public_key_to_string(h(), &keys[1])), "ssh-ed25519 " + kAdmin);

    // Foreign formats are converted, bad ones refused.
    keys = parse("---- BEGIN SSH2 PUBLIC KEY ----\n"
                 "Comment: \"256-bit ED25519, converted from OpenSSH\"\n" +
                 kAdmin + "\n---- END SSH2 PUBLIC KEY ----\n");
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(str(keys[0].type) + " " + str(keys[0].key) + " " + str(keys[0].fingerprint),
              "ssh-ed25519 " + kAdmin + " " + kAdminPrint);
    EXPECT_FALSE(exists(at("/upload/keys.RFC4716"))) << "a converted copy was left behind";
    parse("-----BEGIN PUBLIC KEY-----\nnot a key\n-----END PUBLIC KEY-----\n", KSDB_E_FILE);
    EXPECT_TRUE(contains(log(), "Failed to convert /upload/keys (PKCS8) to OpenSSH public key file format!"));
    ksdb_ssh_public_key *none = nullptr;
    int n = 0;
    EXPECT_EQ(ksdb_parse_ssh_public_key_file(h(), "/upload/missing", &none, &n), KSDB_E_FILE);
    EXPECT_TRUE(contains(log(), "Cannot open file /upload/missing"));
}

// Guards: keys written through a planted link; a broken key store kept (the case
// folders ssh-key/broken-store-* hold what each kind of breakage logs, and that no
// key is imported; all of them end in the one rewrite checked here).
TEST_F(SshKeyTest, ALinkInPlaceOfTheSshFolderIsNeverFollowedAndABrokenStoreIsReplaced) {
    for (const char *d : {"/home/alice", "/home/admin", "/etc/victim"}) mkdirs(at(d));
    ASSERT_EQ(symlink(at("/etc/victim").c_str(), at("/home/alice/.ssh").c_str()), 0);
    sql().exec("INSERT INTO ssh_public_key (user_id,serve_for,type,key,fingerprint,Title) VALUES"
               "(1000,'all','ssh-ed25519','" + kEd + "','x','a'),"
               "(98,'all','ssh-ed25519','" + kAdmin + "','x','b')");
    EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_AUTHORIZED_SSH_PUBLIC_KEY), KSDB_E_FILE);
    EXPECT_FALSE(exists(at("/etc/victim/ssh_authorized_keys")));
    struct stat st {};
    ASSERT_EQ(stat(at("/etc/victim").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u) << "the link's target was changed";
    EXPECT_TRUE(contains(log(), "Cannot chown directory to /home/alice/.ssh"));
    // The other users still get their keys.
    EXPECT_EQ(get("/home/admin/.ssh/ssh_authorized_keys"), "ssh-ed25519 " + kAdmin + " \n");

    put("/etc/quillfold/ssh_authorized_keys.conf", "{\"version\":1,\"ssh_authorized_keys\":{}}");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_AUTHORIZED_SSH_PUBLIC_KEY), 0) << log();
    EXPECT_EQ(get("/etc/quillfold/ssh_authorized_keys.conf"),
              "{\n  \"version\":1,\n  \"ssh_authorized_keys\":[\n  ]\n}\n");
}

// Guards: the key look-ups and the purpose check.
TEST_F(SshKeyTest, LookUps) {
    // Admin's key, tied to root's copy, and alice's key for rsync (kAdmin, kEd).
    sql().exec(read_file(KSDB_TEST_DATA_DIR "/ssh-key-look-ups.sql"));
    EXPECT_EQ(ksdb_find_ssh_public_key_key(h(), db(), "ssh_public_key", kEd.c_str()), 1);
    EXPECT_EQ(ksdb_find_ssh_public_key_key(h(), db(), "replisync_key", kEd.c_str()), 0);
    EXPECT_EQ(ksdb_find_ssh_public_key_key(h(), db(), "x`; DROP TABLE t; --", "k"), -1);
    EXPECT_EQ(ksdb_find_ssh_public_key_user_id_key(h(), db(), 1000, kEd.c_str()), 1);
    EXPECT_EQ(ksdb_find_ssh_public_key_user_id_key(h(), db(), 98, kEd.c_str()), 0);
    EXPECT_EQ(ksdb_find_ssh_public_key_comment(h(), db(), "admin@desk"), 1);
    EXPECT_EQ(ksdb_find_ssh_public_key_id(h(), db(), "ssh_public_key", 3), 1);
    EXPECT_EQ(ksdb_find_ssh_public_key_id(h(), db(), "ssh_public_key", 4), 0);
    EXPECT_EQ(ksdb_find_ssh_public_key_title(h(), db(), "LAPTOP"), 1);
    int root_id = -1;
    EXPECT_EQ(ksdb_find_tied_root_ssh_public_key(h(), db(), 1, &root_id), 1);
    EXPECT_EQ(root_id, 2);
    EXPECT_EQ(ksdb_find_tied_root_ssh_public_key(h(), db(), 3, &root_id), 0);
    EXPECT_EQ(ksdb_delete_ssh_public_key_by_uid(h(), db(), 0), 0);
    int n = 0;
    EXPECT_EQ(ksdb_get_number_of_ssh_public_key(h(), db(), &n), 0);
    EXPECT_EQ(n, 2);
    EXPECT_TRUE(ksdb_is_valid_ssh_public_key_serve_for("all"));
    EXPECT_TRUE(ksdb_is_valid_ssh_public_key_serve_for("rsync"));
    for (const char *bad : {"RSYNC", "", "all ", static_cast<const char *>(nullptr)})
        EXPECT_FALSE(ksdb_is_valid_ssh_public_key_serve_for(bad)) << str(bad);
}

}  // namespace
