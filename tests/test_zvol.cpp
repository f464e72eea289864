// iSCSI LUN shares beyond their case folders: sparse backing stores.
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
};

// Guards: a sparse LUN's size or sparse mark.
TEST_F(ZvolTest, ASparseBackingStoreIsSizedAndMarkedSparse) {
    mkdirs(at("/data/._share/vm"));
    mkdirs(at("/data/vm/.iscsi"));
    put("/data/vm/.iscsi/iscsi_lun_backing_store", std::string(4096, 'x'));
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

}  // namespace
