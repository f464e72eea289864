// The host-name-lookup switch that the share areas recompute after a host
// access list changes.
#define KSDB_MODULE "test_service"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

using namespace ksdb_test;

class HostnameSwitchTest : public RootTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(ksdb_create(h(), db()), 0);
        sql().exec("INSERT INTO service_cifs (user_home_directory,hostname_lookups) VALUES(0,7)");
        sql().exec("INSERT INTO service_ftp (use_reverse_dns) VALUES(7)");
    }
    void host(int id, const char *name, const char *proto) {
        sql().exec("INSERT INTO host (id,name) VALUES(" + std::to_string(id) + ",'" + name + "')");
        sql().exec("INSERT INTO host_acl (share_id,host_id,proto,read,write) VALUES(1," +
                   std::to_string(id) + ",'" + proto + "',1,0)");
    }
};

TEST_F(HostnameSwitchTest, OnExactlyWhenAnEntryNamesAHost) {
    host(1, "192.168.0.5", "cifs");
    host(2, "10.0.0.0/8", "cifs");
    host(3, "pc-1", "ftp");
    EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), "cifs"), 0);
    EXPECT_EQ(sql().scalar("SELECT hostname_lookups FROM service_cifs"), "0");
    EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), "ftp"), 0);
    EXPECT_EQ(sql().scalar("SELECT use_reverse_dns FROM service_ftp"), "1");

    host(4, "nas2.example.org", "cifs");
    EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), "cifs"), 0);
    EXPECT_EQ(sql().scalar("SELECT hostname_lookups FROM service_cifs"), "1");
    EXPECT_NE(log().find("Found host name nas2.example.org in host acl. protocol is cifs.\n"),
              std::string::npos);
    EXPECT_NE(log().find("_ksdb_service_update_setting_by_share_cifs: set hostname_lookups to 1\n"),
              std::string::npos);
}

TEST_F(HostnameSwitchTest, OtherProtocolsChangeNothing) {
    host(1, "pc-1", "nfs");
    for (const char *proto : {"nfs", "CIFS", "afp", ""})
        EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), proto), 0) << proto;
    EXPECT_EQ(sql().scalar("SELECT hostname_lookups FROM service_cifs"), "7");
    EXPECT_EQ(sql().scalar("SELECT use_reverse_dns FROM service_ftp"), "7");
}

TEST_F(HostnameSwitchTest, AFailedUpdateGivesThree) {
    sql().exec("DROP TABLE service_ftp");
    EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), "ftp"), KSDB_E_DB);
    EXPECT_NE(log().find("Failed to UPDATE table service_ftp, column use_reverse_dns, value 0!\n"),
              std::string::npos);
    EXPECT_NE(log().find("Failed to call _ksdb_update_table_column_int!\n"), std::string::npos);
}
