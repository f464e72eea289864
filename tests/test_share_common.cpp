// The shares-common pieces the case folders do not reach, and the exports' statement counts.
#define KSDB_MODULE "test_share_common"
#include "shares/ksdb_share_common.h"
#include "tests/support/share_tests.h"

using namespace ksdb_test;
namespace shares = ksdb::shares;

namespace {

class ShareCommonTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        sql().exec(
            "INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES"
            "(1000,'alice',100,0,NULL),(1001,'WG\\bob',100,0,NULL);"
            "INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL)");
    }
};

}  // namespace

// Guards: quoted separators split; a name of 127 characters refused; entries stored
// for unknown accounts or twice; host ids not reused; a failed account entry logged
// without its statement; USB path lines misread.
TEST_F(ShareCommonTest, ListsAccountAndHostEntriesInEveryProtocolsFormAndUsbPathLines) {
    std::vector<std::string> out;
    ASSERT_EQ(shares::split_list_strict(h(), "\"a, b\" ,c,, \"@d\"", ',', &out), 0);
    EXPECT_EQ(out, (Rows{"a, b", "c", "@d"}));
    ASSERT_EQ(shares::split_list_strict(h(), " h1\t\"my host\":x  h2 ", ' ', &out), 0);
    EXPECT_EQ(out, (Rows{"h1", "my host", "h2"}));
    // 128 characters and an open quote fail (the NFS import cases); 127 pass.
    EXPECT_EQ(shares::split_list_strict(h(), std::string(127, 'x'), ',', &out), 0);
    // The loose reader drops a quote at either end of each entry on its own.
    EXPECT_EQ(shares::split_list("a\",\"b , \"c\"", ','), (Rows{"a", "b", "c"}));

    // Without domain marks the whole name counts (a backslash included);
    // an unknown account is skipped; without the update an entry is kept.
    auto put = [&](const char *entry, int read, int write, bool update) {
        return shares::put_account_acl(h(), db(), 7, "afp", shares::parse_account(entry, false),
                                       read, write, update);
    };
    EXPECT_EQ(put("WG\\bob", 1, 1, true), SQLITE_OK);
    EXPECT_EQ(put("@staff", 1, 0, true), SQLITE_OK);
    EXPECT_EQ(put("nobody", 1, 0, true), SQLITE_OK);
    EXPECT_EQ(put("WG\\bob", 0, 0, false), SQLITE_OK);
    EXPECT_EQ(sql().rows("SELECT share_id,user_id,proto,read,write FROM user_acl"),
              Rows{"7|1001|afp|1|1"});
    EXPECT_EQ(sql().rows("SELECT share_id,group_id,proto,read,write FROM group_acl"),
              Rows{"7|100|afp|1|0"});

    int id = 0, again = 0;
    ASSERT_EQ(shares::get_host_id(h(), db(), "pc1", &id, "Query"), 0);
    ASSERT_EQ(shares::get_host_id(h(), db(), "pc1", &again, "Query"), 0);
    EXPECT_EQ(id, again);
    EXPECT_EQ(shares::put_host_acl_root(h(), db(), 7, id, "nfs", 1, 1, "ins\n", "upd\n"), 0);
    EXPECT_EQ(shares::put_host_acl(h(), db(), 7, id, "rsync", 1, 1), SQLITE_OK);
    EXPECT_EQ(sql().rows("SELECT proto,read,write,root FROM host_acl ORDER BY proto"),
              (Rows{"nfs|1|1|1", "rsync|1|1|0"}));
    sql().exec("DROP TABLE host_acl");
    EXPECT_EQ(shares::put_host_acl_root(h(), db(), 7, id, "nfs", 0, 0, "ins\n", "upd\n"),
              KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) ins\n"));

    // A failed account entry is logged with its statement.
    const shares::AccountRef alice = shares::parse_account("alice", false);
    auto logged = [&](int read, int write, bool update) {
        return shares::put_account_acl_logged(h(), db(), 7, "afp", alice, read, write, update,
                                              "ins user\n", "upd user\n");
    };
    EXPECT_EQ(logged(1, 1, true), 0);
    sql().exec("CREATE TRIGGER no_update BEFORE UPDATE ON user_acl BEGIN SELECT RAISE(ABORT,'x'); END");
    EXPECT_EQ(logged(1, 0, false), 0);  // no update asked for
    EXPECT_EQ(logged(1, 0, true), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) upd user\n"));
    EXPECT_EQ(sql().rows("SELECT read,write FROM user_acl WHERE user_id=1000"), Rows{"1|1"});
    sql().exec("DROP TABLE user_acl");
    EXPECT_EQ(logged(1, 1, true), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) ins user\n"));

    EXPECT_EQ(shares::usb_media_share("  path = /media/My Docs\r\n"), "My Docs");
    for (const char *line : {"  path = /vol1/data", "  path = /media/a/b", "  path = /media/..",
                             "  path = /mediax/a", "  path = /media/", "[media]"})
        EXPECT_EQ(shares::usb_media_share(line), std::nullopt) << line;
}

// Guards: an export reading the access or host entries once per share (its
// statements growing with the shares).
TEST_F(ShareCommonTest, AnExportRunsTheSameStatementsForTenOrFortyShares) {
    sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1);"
               "INSERT INTO host (id,name) VALUES(1,'h1'),(2,'h2')");
    for (const char *v : {"/vol1/._share", "/etc/quillfold/usb/._share"}) mkdirs(at(v));
    for (const int category : {KSDB_CAT_AFP_SHARE, KSDB_CAT_RSYNC, KSDB_CAT_NFS_SHARE}) {
        SCOPED_TRACE(ksdb_cat2str(category));
        // A share's rows ("%d": its id), a file the export writes and what it holds of share 40.
        const Rows p = lines(read_file(std::string(KSDB_TEST_DATA_DIR "/share-statement-counts/") +
                                       ksdb_cat2str(category)));
        ASSERT_EQ(p.size(), 3u);
        sql().exec("DELETE FROM share; DELETE FROM host_acl; DELETE FROM user_acl");
        int made = 0;
        auto statements = [&](int shares) {
            for (; made < shares; ++made) {
                const std::string n = std::to_string(made + 1);
                sql().exec("INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(" +
                           n + ",'vol1/s" + n + "','vol1','s" + n + "','/vol1/s" + n + "',0,0);" +
                           replace_all(p[0], "%d", n));
            }
            return selects_during(h(), [&] { EXPECT_EQ(ksdb_export(h(), db(), category), 0) << log(); });
        };
        const int ten = statements(10);
        EXPECT_GT(ten, 0);
        EXPECT_EQ(statements(40), ten);
        EXPECT_TRUE(contains(get(p[1]), replace_all(p[2], "\\n", "\n"))) << get(p[1]);
    }
}
