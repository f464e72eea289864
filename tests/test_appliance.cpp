// Product data and network interfaces beyond their case folders.
#define KSDB_MODULE "test_appliance"
#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <net/if.h>

#include <cstring>
#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

class ApplianceTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0) << log(); }
    void TearDown() override { ksdb_platform_set(nullptr); }
};

// Guards: product data not from the system record (an unterminated serial
// read too far), no row without one (the case folder product-data/no-table
// holds a failure).
TEST_F(ApplianceTest, ProductDataComesFromTheSystemRecord) {
    ksdb_sys_info *info = h()->sys_info;
    std::strcpy(info->vendor, "Kestrava");
    std::strcpy(info->model, "N5550");
    std::memset(info->serial, 'S', sizeof info->serial);  // no terminator in its field
    sql().exec("INSERT INTO vital_product_data VALUES('old','old','old',8,1)");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_VPD), 0) << log();
    EXPECT_EQ(sql().rows("SELECT vendor,model,serial,max_chan,autospan FROM vital_product_data"),
              std::vector<std::string>{"Kestrava|N5550|" + std::string(64, 'S') + "|0|0"});

    h()->sys_info = nullptr;
    ASSERT_EQ(ksdb_vpd_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT * FROM vital_product_data"),
              std::vector<std::string>{"<NULL>|<NULL>|<NULL>|0|0"});
}

int g_scan_status;
int scripted_scan(const char *root, ksdb_net_if *ifs, int max, int *count) {
    EXPECT_NE(root, nullptr);  // a debug root is handed on
    *count = 0;
    const ksdb_net_if listed[] = {
        {"bond0", 1, IFF_UP, 1, {0xde, 0xad, 0xBE, 0xEF, 0x00, 0x0a}},
        {"bond0", 1, IFF_UP, 1, {0xde, 0xad, 0xbe, 0xef, 0x00, 0x0b}},
    };
    for (const ksdb_net_if &e : listed)
        if (*count < max) ifs[(*count)++] = e;
    return g_scan_status;
}

// Guards: a repeated name not taking its last MAC; a failed scan not 1 or emptying
// the table (the case folder network/tree-interfaces holds the interfaces left out).
TEST_F(ApplianceTest, APlatformScanSuppliesTheInterfacesAndItsFailuresGiveOne) {
    ksdb_platform_ops ops = *ksdb_platform_builtin();
    ops.net_if_scan = scripted_scan;
    ksdb_platform_set(&ops);
    g_scan_status = 0;
    ASSERT_EQ(ksdb_network_import(h(), db()), 0) << log();
    EXPECT_EQ(sql().rows("SELECT name,mac FROM network_if"),
              std::vector<std::string>{"bond0|de:ad:be:ef:00:0b"});

    for (const int status : {KSDB_NET_IF_ELIST, KSDB_NET_IF_ENOSOCKET}) {
        g_scan_status = status;
        EXPECT_EQ(ksdb_network_import(h(), db()), KSDB_E_STEP) << status;
        EXPECT_EQ(sql().rows("SELECT name FROM network_if"), std::vector<std::string>{"bond0"}) << status;
    }
    EXPECT_TRUE(contains(log(), "(error) Failed SIOCGIFCONF\n")) << log();
}

// Guards: the built-in scan of the machine (no root) missing the loopback's flag.
TEST(NetworkScan, TheBuiltInScanListsTheMachinesLoopback) {
    ksdb_net_if ifs[KSDB_MAX_NET_IFS];
    int count = -1;
    ASSERT_EQ(ksdb_platform_builtin()->net_if_scan(nullptr, ifs, KSDB_MAX_NET_IFS, &count), 0);
    ASSERT_GE(count, 0);
    ASSERT_LE(count, KSDB_MAX_NET_IFS);
    const ksdb_net_if *lo = nullptr;
    for (int i = 0; i < count; ++i)
        if (std::strcmp(ifs[i].name, "lo") == 0) lo = &ifs[i];
    if (!lo) GTEST_SKIP() << "this machine's loopback has no IPv4 address";
    EXPECT_TRUE(lo->flags_ok);
    EXPECT_TRUE(lo->flags & IFF_LOOPBACK);
}

}  // namespace
