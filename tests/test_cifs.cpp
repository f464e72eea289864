// Shares over CIFS beyond their case folders: DFS links found through the
// file system, quotas, the callers' pools, side files that are links or FIFOs.
#define KSDB_MODULE "test_cifs"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <sys/stat.h>
#include <unistd.h>

using namespace ksdb_test;

namespace {

class CifsTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        for (const char *v : {"/vol1/._share", "/vol2/._share", "/media/._share"}) mkdirs(at(v));
    }
    // The database of a case folder.
    void load_case(const std::string &name) {
        sql().exec(read_file(std::string(KSDB_CASES_DIR) + "/cifs-share/" + name + "/db.sql"));
    }
    int export_cifs() { return ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE); }
};

}  // namespace

// Guards: an old DFS line given to the wrong share or a path climbing out.
TEST_F(CifsTest, DfsImportFindsTheShareOfAnOlderLineThroughItsLinks) {
    sql().exec(read_file(KSDB_TEST_DATA_DIR "/cifs-dfs-shares.sql"));
    // The first share holds a link of the same name to another target.
    mkdirs(at("/vol1/archive"));
    mkdirs(at("/vol2/snap"));
    ASSERT_EQ(symlink("msdfs:other\\pub", at("/vol1/archive/docs").c_str()), 0);
    ASSERT_EQ(symlink("msdfs:server1\\pub", at("/vol2/snap/docs").c_str()), 0);
    ASSERT_EQ(symlink("msdfs:server1\\pub", at("/vol2/snap/it's $(docs)").c_str()), 0);
    put("/etc/quillfold/samba/dfs.conf", read_file(KSDB_TEST_DATA_DIR "/cifs-dfs-links.conf"));
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    const char *links =
        "SELECT S.name,D.volume,D.share,D.folder,D.address,D.remote_share FROM cifs_dfs_option "
        "D INNER JOIN share S ON S.id=D.share_id ORDER BY 1,4";
    EXPECT_EQ(sql().rows(links), (Rows{"snap|vol2|snap|docs|server1|pub",
                                       "snap|vol2|snap|it's $(docs)|server1|pub",
                                       "snap|vol2|snap|links|srv|remote"}));
    // Importing again meets the links already there: logged, not fatal.
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_TRUE(contains(log(), "(error) Failed to UPDATE cifs_dfs_option\n"));
    EXPECT_EQ(sql().rows(links).size(), 3u);
}

// Guards: quota queries not run; their failure not 3.
TEST_F(CifsTest, QuotasReachTheAttributeSetterAndAFailedQuotaQueryGivesThree) {
    load_case("volume-shares");
    CaptureFile trace;
    h()->trace_stream = trace.get();
    ASSERT_EQ(export_cifs(), 0);
    h()->trace_stream = nullptr;
    const std::string t = trace.text();
    for (const char *q : {"SELECT 'userquota@'||Q.user_id,S.zfs_name,Q.mb_hard*1048576 FROM "
                          "user_quota Q INNER JOIN share S ON S.id=Q.share_id",
                          "SELECT 'groupquota@'||Q.group_id,S.zfs_name,Q.mb_hard*1048576 FROM "
                          "group_quota Q INNER JOIN share S ON S.id=Q.share_id"}) {
        const size_t at = t.find(std::string("sql=") + q);
        ASSERT_NE(at, std::string::npos) << q;
        EXPECT_TRUE(contains(t.substr(at, t.find('\n', t.find('\n', at) + 1) - at),
                             " ==> 0:0 (success) nrow=1 ncol=3"));
    }
    sql().exec("DROP TABLE group_quota");
    EXPECT_EQ(export_cifs(), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "(error) Error in SELECT group_quota.\n"));
}

// Guards: exports allocating from the caller's pools.
TEST_F(CifsTest, RepeatedExportsDoNotGrowTheCallersPools) {
    load_case("volume-shares");
    ASSERT_EQ(export_cifs(), 0);  // folders made once
    apr_pool_t *call = nullptr;
    ASSERT_EQ(apr_pool_create(&call, nullptr), APR_SUCCESS);
    h()->call_pool = call;
    // APR hands out 8-byte aligned pieces one after another: two marks are
    // neighbours exactly when nothing was taken in between.
    char *call_mark = static_cast<char *>(apr_palloc(call, 8));
    char *main_mark = static_cast<char *>(apr_palloc(h()->pool, 8));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(ksdb_cifs_share_export(h(), db()), 0);
    EXPECT_EQ(static_cast<char *>(apr_palloc(call, 8)), call_mark + 8);
    EXPECT_EQ(static_cast<char *>(apr_palloc(h()->pool, 8)), main_mark + 8);
    h()->call_pool = nullptr;
    apr_pool_destroy(call);
}

// Guards: a side file written through a planted link, or a FIFO stalling the import.
TEST_F(CifsTest, SideFilesAreReplacedOnExportAndReadAsRegularFilesOnImport) {
    load_case("blank-share-name");
    put("/victim", "keep\n");
    mkdirs(at("/vol1/._share/My Docs"));
    ASSERT_EQ(symlink(at("/victim").c_str(), at("/vol1/._share/My Docs/recycle.conf").c_str()), 0);
    ASSERT_EQ(export_cifs(), 0);
    EXPECT_EQ(get("/victim"), "keep\n");
    EXPECT_EQ(get("/vol1/._share/My Docs/recycle.conf"), "3,50\n");

    put("/vol1/._share/docs/samba.conf", "[docs]\n  path = /vol1/docs\n");
    mkdirs(at("/vol1/docs"));
    ASSERT_EQ(mkfifo(at("/vol1/._share/docs/datasettype.conf").c_str(), 0644), 0);
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
    EXPECT_EQ(sql().scalar("SELECT type FROM share WHERE name='docs'"), "share");
}

