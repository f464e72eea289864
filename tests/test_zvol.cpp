// iSCSI LUN shares beyond their case folders: sparse backing stores, failing statements.
#include "tests/support/test_support.h"

#include <fcntl.h>
#include <unistd.h>

using namespace ksdb_test;

namespace {

class ZvolTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        sql().exec("INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024)");
    }
    void lun(const std::string &name, const std::string &data = std::string(4096, 'x')) {
        mkdirs(at("/data/._share/" + name));
        mkdirs(at("/data/" + name + "/.iscsi"));
        put("/data/" + name + "/.iscsi/iscsi_lun_backing_store", data);
    }
};

// Guards: a sparse LUN's size or sparse mark.
TEST_F(ZvolTest, ASparseBackingStoreIsSizedAndMarkedSparse) {
    lun("vm");
    // 10 GiB long, 1 MiB of it written.
    int fd = open(at("/data/vm/.iscsi/iscsi_lun_backing_store").c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, 10LL << 30), 0);
    const std::string mib(1 << 20, 'd');
    ASSERT_EQ(pwrite(fd, mib.data(), mib.size(), 0), static_cast<ssize_t>(mib.size()));
    close(fd);
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ZVOL_SHARE), 0) << log();
    EXPECT_EQ(sql().rows("SELECT S.name,Z.kb_size,Z.is_sparse FROM share S JOIN zvol_share_option "
                         "Z ON Z.share_id=S.id"),
              std::vector<std::string>{"vm|10485760|1"});
    EXPECT_TRUE(contains(log(), "Cannot load /data/._share/vm/iscsi.conf. Ignore zvol share config.\n"));
}

// Guards: a failed row not 3; a refused share stopping the others.
TEST_F(ZvolTest, AFailedRowGivesThreeAndTheDriverKeepsTheTables) {
    lun("lun0");
    lun("lun1");
    sql().exec("ALTER TABLE zvol_share_option RENAME TO zvol_away");
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_ZVOL_SHARE), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "Fail on 'INSERT INTO zvol_share_option'"));
    EXPECT_EQ(sql().scalar("SELECT COUNT(*) FROM share"), "0");

    // A share row the database refuses is passed over; the others are kept.
    sql().exec("ALTER TABLE zvol_away RENAME TO zvol_share_option");
    sql().exec("CREATE TRIGGER no_lun0 BEFORE INSERT ON share WHEN NEW.name='lun0' "
               "BEGIN SELECT RAISE(ABORT,'refused'); END");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ZVOL_SHARE), 0) << log();
    EXPECT_TRUE(contains(log(), "Ignore duplicate dataset name (lun0).\n"));
    EXPECT_EQ(sql().column("SELECT name FROM share"), std::vector<std::string>{"lun1"});
}

}  // namespace
