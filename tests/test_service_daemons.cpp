// The SSH, SNMP and anti-virus service files beyond their case folders:
// the platform's object identifier, hostile values in every column the
// three files are made from.
#define KSDB_MODULE "test_service_daemons"
#include "tests/support/case_runner.h"
#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <cstdio>
#include <cstdlib>
#include <string>

using namespace ksdb_test;

namespace {

const std::string kCases = KSDB_CASES_DIR;
class ServiceDaemonTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0); }
    void TearDown() override { ksdb_platform_set(nullptr); }
    void object_id(int (*get)(char *, size_t)) {
        ksdb_platform_ops ops = *ksdb_platform_builtin();
        ops.getSysObjectID = get;
        ksdb_platform_set(&ops);
    }
    // Every file the three exporters write, the settings file included.
    std::string files() const {
        std::string all;
        for (const char *f : {"/etc/default/services", "/etc/snmp/snmpd.conf",
                              "/etc/clamav/clamd.conf", "/etc/ssh/sshd_config"})
            all += std::string(f) + ":\n" + get(f);
        return all;
    }
};

TEST_F(ServiceDaemonTest, TheObjectIdentifierIsThePlatformsNumericOne) {
    object_id([](char *buffer, size_t size) -> int {
        return std::snprintf(buffer, size, "1.3.6.1.4.1.99999.7") < 0;
    });
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SNMP_SERVICE), 0) << log();
    const std::string head = "sysDescr Kestrava OS\nsysObjectID 1.3.6.1.4.1.99999.7\n";
    EXPECT_EQ(get("/etc/snmp/snmpd.conf").find(head), 0u);
    // Text that is not a numeric identifier would add a directive.
    object_id([](char *buffer, size_t size) -> int {
        return std::snprintf(buffer, size, "1.3.6.1\nrwcommunity evil") < 0;
    });
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SNMP_SERVICE), 0) << log();
    EXPECT_EQ(get("/etc/snmp/snmpd.conf").find("sysObjectID"), std::string::npos);
    EXPECT_EQ(get("/etc/snmp/snmpd.conf").find("evil"), std::string::npos);
    EXPECT_NE(log().find("(warn) The SNMP system object identifier is not numeric"),
              std::string::npos);
    // None at all: the case folder's export law.
    object_id([](char *, size_t) -> int { return 1; });
    int ran = 0;
    for (const CaseSpec &spec : find_cases(kCases))
        if (spec.name == "snmp-service/no-object-id") ++ran, run_export_law(spec);
    EXPECT_EQ(ran, 1);
}

struct Column {
    int category;
    const char *table, *column, *row, *good;
    bool text;  // may hold blanks inside
};
const Column kColumns[] = {
    {KSDB_CAT_SNMP_SERVICE, "service_snmp", "allow_host", "rowid 1", "10.0.0.0/8", false},
    {KSDB_CAT_SNMP_SERVICE, "service_snmp", "community", "rowid 1", "public", false},
    {KSDB_CAT_SNMP_SERVICE, "service_snmp", "trap_destination", "rowid 1", "10.0.0.1", false},
    {KSDB_CAT_SNMP_SERVICE, "service_snmp", "contact", "rowid 1", "ops team", true},
    {KSDB_CAT_SNMP_SERVICE, "service_snmp", "location", "rowid 1", "Rack 4", true},
    {KSDB_CAT_ANTIVIRUS_SERVICE, "_volume", "lv_name", "id 1", "data", true},
    {KSDB_CAT_ANTIVIRUS_SERVICE, "share", "path", "name lun1", "/data/lun 1", true},
};
const std::pair<const char *, const char *> kHostile[] = {
    {"", "\nrwcommunity evil"}, {"", "\r"}, {"", " extra"}, {"\t", ""}, {"#", ""},
    {"", "#x"}, {"\"", ""}, {"'", ""}, {"", "\\"}, {" ", ""},
};

TEST_F(ServiceDaemonTest, HostileValuesAreRefusedBeforeAnyFileIsWritten) {
    sql().exec("INSERT INTO service_snmp (enabled,allow_host,community,trap_destination,contact,"
               "location) VALUES(1,'10.0.0.0/8','public','10.0.0.1','ops team','Rack 4');"
               "INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','data','u1',4096);"
               "INSERT INTO share (id,zfs_name,type,name,path,user_id,group_id) "
               "VALUES(1,'data/lun1','zvol','lun1','/data/lun 1',0,0)");
    for (int cat : {KSDB_CAT_SNMP_SERVICE, KSDB_CAT_ANTIVIRUS_SERVICE, KSDB_CAT_SSH_SERVICE})
        ASSERT_EQ(ksdb_export(h(), db(), cat), 0) << log();
    const std::string written = files();
    for (const Column &c : kColumns)
        for (const auto &[before, after] : kHostile) {
            const std::string bad = before + std::string(c.good) + after;
            if (c.text && bad == std::string(c.good) + " extra") continue;  // blanks inside
            const std::string set = std::string("UPDATE ") + c.table + " SET " + c.column + "=";
            sql().exec(set + "'" + replace_all(bad, "'", "''") + "'");
            const size_t mark = log().size();
            EXPECT_EQ(ksdb_export(h(), db(), c.category), KSDB_E_INVAL) << c.column << ": " << bad;
            const std::string refused = std::string("Refused ") + c.table + "." + c.column;
            EXPECT_NE(log().find(refused + " of '" + c.row + "'", mark), std::string::npos) << bad;
            EXPECT_EQ(files(), written) << c.column << ": " << bad;
            sql().exec(set + "'" + c.good + "'");
        }
    // sshd_config takes no stored text: a hostile switch reads as "no".
    sql().exec("INSERT INTO service_ssh (password_authentication) VALUES('1\nPermitRootLogin no')");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SSH_SERVICE), 0) << log();
    EXPECT_EQ(files(),
              replace_all(written, "PasswordAuthentication yes", "PasswordAuthentication no"));
}

}  // namespace
