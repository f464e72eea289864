// The service files beyond their case folders: hostile values, sourced files,
// non-regular files met by readers, the daemons' checkers, look-ups, switches.
#define KSDB_MODULE "test_service"
#include "core/ksdb_internal.h"
#include "tests/support/case_runner.h"
#include "tests/support/test_support.h"

#include "ksdb_platform.h"

#include <sys/stat.h>

#include <filesystem>

using namespace ksdb_test;

namespace {

class ServiceTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0); }
    void TearDown() override { ksdb_platform_set(nullptr); }

    // Every file below the root but the scratch folder.
    std::map<std::string, std::string> files() const {
        auto out = file_tree(root());
        std::erase_if(out, [](const auto &f) { return f.first.rfind("tmp/", 0) == 0; });
        return out;
    }
    // Exports samba's files and the shares, and checks a copy of smb.conf whose
    // include paths point below the root, with the include files the appliance
    // itself provides: the checker's status, its output in *out.
    int check_smb(std::string *out) {
        EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SERVICE), 0);
        EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE), 0);
        const std::string dir = root() + "/etc/quillfold/samba/";
        write_file(dir + "smb.conf.defaults", " server min protocol = SMB2\n");
        write_file(dir + "smb.conf.UNKNOWN", "");  // testparm expands %a to UNKNOWN
        write_file(dir + "smb.conf.overrides", "include = " + dir + "Shares.conf.admin\n");
        write_file(dir + "Shares.conf.", "");  // %U is empty
        write_file(dir + "addons/addons.conf", "");
        std::string text = read_file(root() + "/etc/samba/smb.conf");
        text = replace_all(text, " /etc/quillfold/", " " + root() + "/etc/quillfold/");
        write_file(root() + "/smb.check.conf", replace_all(text, " /run/usb/", " " + root() + "/run/usb/"));
        EXPECT_TRUE(contains(text, dir + "Shares.conf"));
        return run_checker("check-smb.sh", root() + "/smb.check.conf", out);
    }
    void object_id(int (*get)(char *, size_t)) {
        ksdb_platform_ops ops = *ksdb_platform_builtin();
        ops.getSysObjectID = get;
        ksdb_platform_set(&ops);
    }
};

// A category by its name ("CIFS_SERVICE"), -1 when unknown.
int category_named(const std::string &name) {
    for (int c = 0; c < KSDB_CATEGORY_COUNT; ++c)
        if (name == ksdb_cat2str(c)) return c;
    return -1;
}

// The "|"-separated fields of each line of a data file but comments.
std::vector<std::vector<std::string>> data_rows(const std::string &name) {
    std::vector<std::vector<std::string>> out;
    for (const std::string &line : lines(read_file(KSDB_TEST_DATA_DIR "/" + name)))
        if (!line.empty() && line[0] != '#') out.push_back(split(line, '|'));
    EXPECT_FALSE(out.empty()) << "nothing read from " << name;
    return out;
}

// Each hostile text, put before and after the good value: for the
// settings, Samba, NFS and FTP files, and for the SNMP and clamd files.
const std::vector<std::pair<const char *, const char *>> kHostile[] = {
    {{"", "\n[evil]\npath = /"}, {"", "\r"}, {"[", ""}, {"", "]"}, {"", ";x"}, {"#", ""}, {"%U", ""},
     {"\"", ""}, {"'", ""}, {"", "\\"}, {"$(reboot)", ""}, {"`id`", ""}, {"../", ""}, {"", " Include"}},
    {{"", "\nrwcommunity evil"}, {"", "\r"}, {"", " extra"}, {"\t", ""}, {"#", ""}, {"", "#x"},
     {"\"", ""}, {"'", ""}, {"", "\\"}, {" ", ""}},
};

// Guards: a hostile value written, refused without its row or after a file was replaced.
TEST_F(ServiceTest, HostileValuesInEveryGuardedColumnAreRefusedBeforeAnyFileIsWritten) {
    sql().exec(read_file(KSDB_TEST_DATA_DIR "/service-rows.sql"));
    for (int cat :
         {KSDB_CAT_DEFAULT_SERVICE, KSDB_CAT_CIFS_SERVICE, KSDB_CAT_NFS_SERVICE, KSDB_CAT_FTP_SERVICE,
          KSDB_CAT_REPLICATE_SERVICE, KSDB_CAT_SNMP_SERVICE, KSDB_CAT_ANTIVIRUS_SERVICE})
        ASSERT_EQ(ksdb_export(h(), db(), cat), 0) << ksdb_cat2str(cat) << log();
    const auto written = files();
    // Each line of the data file: category|table|column|row|good value|refuses|hostile list.
    for (const std::vector<std::string> &g : data_rows("service-guarded-columns")) {
        ASSERT_EQ(g.size(), 7u) << g.at(0);
        const int category = category_named(g[0]);
        ASSERT_GE(category, 0) << g[0];
        const std::string &table = g[1], &column = g[2], &row_name = g[3], &good = g[4], &refuses = g[5];
        const std::string set = "UPDATE " + table + " SET " + column + "=";
        for (const auto &[before, after] : kHostile[g[6] == "daemon"]) {
            const std::string bad = before + good + after;
            const bool line_break = bad.find_first_of("\r\n") != std::string::npos;
            if ((refuses == "breaks" && !line_break) || (refuses == "all-but-blank" && *after == ' '))
                continue;
            sql().exec(set + sql_quoted(bad) + " WHERE " + column + "=" + sql_quoted(good));
            // An integer column keeps "0\r" as the number 0: nothing hostile stored.
            if (sql().scalar("SELECT typeof(" + column + ") FROM " + table) == "integer") continue;
            const size_t mark = log().size();
            EXPECT_EQ(ksdb_export(h(), db(), category), KSDB_E_INVAL) << column << ": " << bad;
            const std::string row =
                !row_name.empty() ? row_name : replace_all(replace_all(bad, "\n", "\\x0a"), "\r", "\\x0d");
            EXPECT_NE(log().find("Refused " + table + "." + column + " of '" + row + "'", mark),
                      std::string::npos)
                << bad << "\n"
                << log().substr(mark);
            EXPECT_EQ(files(), written) << column << ": " << bad;
            sql().exec(set + sql_quoted(good) + " WHERE " + column + "=" + sql_quoted(bad));
        }
        EXPECT_EQ(ksdb_export(h(), db(), category), 0) << column;
        EXPECT_EQ(files(), written) << column;
    }
}

// Sources `file` with sh and gives the values of `names` (none holds a line break).
std::vector<std::string> source(const std::string &file, const std::vector<std::string> &names) {
    std::string cmd = "sh -c '. \"$0\" && printf \"%s\\n\"";
    for (const std::string &n : names) cmd += " \"$" + n + "\"";
    EXPECT_EQ(std::system((cmd + "' '" + file + "' >'" + file + ".sourced'").c_str()), 0);
    return lines(read_file(file + ".sourced"));
}

// Guards: a sourced value the shell runs or changes, or the import misreads.
TEST_F(ServiceTest, SourcingTheSettingsFilesGivesTheStoredTextsAndRunsNothing) {
    const std::string marker = at("/injected");
    const std::vector<std::string> values = {
        "Server room 2", "en;touch " + marker, "$(touch " + marker + ")", "`touch " + marker + "`",
        "it's \"quoted\"", "back\\slash\\", "~root:~/x", "a|b&c>d<e (f) {g}", "*?[x]!^ #h\t%p=",
    };
    // A mapped text column, a mapped integer column holding text, and free keys.
    std::vector<std::string> names = {"SNMP_LOCATION", "SSHPORT"}, want = {values[1], values[2]};
    for (size_t i = 0; i < values.size(); ++i) {
        names.push_back("FREE_" + std::to_string(i));
        sql().exec("INSERT INTO service_misc (key,val) VALUES('" + names.back() + "'," +
                   sql_quoted(values[i]) + ")");
    }
    sql().exec("INSERT INTO service_snmp (location) VALUES(" + sql_quoted(values[1]) + ")");
    sql().exec("INSERT INTO service_ssh (port) VALUES(" + sql_quoted(values[2]) + ")");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_DEFAULT_SERVICE), 0) << log();
    want.insert(want.end(), values.begin(), values.end());
    EXPECT_EQ(source(at("/etc/default/services"), names), want);
    EXPECT_FALSE(exists(marker));

    sql().exec("DELETE FROM service_misc; DELETE FROM service_snmp");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_DEFAULT_SERVICE), 0) << log();
    EXPECT_EQ(sql().column("SELECT val FROM service_misc WHERE key LIKE 'FREE_%' ORDER BY key"), values);
    EXPECT_EQ(sql().scalar("SELECT location FROM service_snmp"), values[1]);
}

// Guards: a reader that opens a FIFO (it would hang) or a folder.
TEST_F(ServiceTest, ReadersRefuseWhatIsNotARegularFileWithoutWaiting) {
    put("/etc/samba/smb.conf", "[global]\n");
    put("/etc/proftpd/proftpd.conf", "Port 21\n");
    namespace fs = std::filesystem;
    for (const std::vector<std::string> &f : data_rows("service-readers")) {
        const int cat = category_named(f.at(0));
        const std::string &path = f.at(1);
        const std::string real = at(path), kept = real + ".kept";
        if (exists(real)) fs::rename(real, kept);
        mkdirs(fs::path(real).parent_path());
        ASSERT_EQ(mkfifo(real.c_str(), 0600), 0) << path;
        const int expected = cat == KSDB_CAT_ALL_SERVICE ? KSDB_E_STEP : KSDB_E_FILE;
        EXPECT_EQ(ksdb_import(h(), db(), cat), expected) << path;
        EXPECT_TRUE(contains(log(), "(error) Cannot load " + path + "\n"));
        fs::remove(real);
        fs::create_directory(real);
        EXPECT_EQ(ksdb_import(h(), db(), cat), expected) << path;
        fs::remove(real);
        if (exists(kept)) fs::rename(kept, real);
    }
}

// Guards: a parameter or value Samba refuses: unset, stand-alone with shares, domain member.
TEST_F(ServiceTest, SambaAcceptsTheWholeGeneratedConfigurationInEveryState) {
    if (!have_program("testparm")) GTEST_SKIP() << "testparm is not installed (scripts/setup-deps)";
    std::string out;
    sql().exec("INSERT INTO service_cifs (user_home_directory) VALUES(0)");
    EXPECT_EQ(check_smb(&out), 0) << out;
    sql().exec("DELETE FROM service_cifs");
    sql().exec(read_file(std::string(KSDB_CASES_DIR) + "/cifs-share/volume-shares/db.sql"));
    for (const char *v : {"/vol1/._share", "/vol2/._share", "/media/._share"}) mkdirs(at(v));
    sql().exec("DELETE FROM `$application_on_share`;"  // their include files live on the appliance
               "UPDATE _volume SET uuid='0b9c6d2e-1111-2222-3333-444455556666' WHERE id<>'media';"
               "UPDATE service_cifs SET oplocks=1,allow_trusted_domains=0,map_to_guest='Bad User';"
               "INSERT INTO service_misc (key,val) VALUES('LANGUAGE','de')");
    EXPECT_EQ(check_smb(&out), 0) << out;
    // Samba warns about a named password server: a domain leaves it "*".
    sql().exec("UPDATE service_cifs SET user_home_directory=1,security='ads',workgroup='CORP',"
               "realm='CORP.EXAMPLE.COM',domain_admin_user='Administrator',allow_trusted_domains=1,"
               "idmap_backend='tdb',join_ads_failed=1");
    EXPECT_EQ(check_smb(&out), 0) << out;
    EXPECT_TRUE(contains(get("/etc/quillfold/samba/Shares.conf"),
                         "  admin users = \"+admin\",\"CORP\\Administrator\"\n"));
    put("/smb.check.conf", get("/smb.check.conf") + " oplocks = maybe\n");
    EXPECT_NE(run_checker("check-smb.sh", at("/smb.check.conf"), &out), 0) << out;
}

// Guards: a directive proftpd does not know, with every switch off or on.
TEST_F(ServiceTest, ProftpdAcceptsTheGeneratedFilesInEveryState) {
    if (!have_program("proftpd") || !have_program("openssl"))
        GTEST_SKIP() << "proftpd or openssl is not installed (scripts/setup-deps)";
    const std::string dir = "/etc/quillfold/proftpd/", pem = at("/etc/quillfold/apache/apache2.pem");
    put(dir + "proftpd.conf.overrides", "");
    put(dir + "User.conf", "<Limit LOGIN>\n  AllowAll\n</Limit>\n");
    put(dir + "Anonymous.conf", "<Anonymous " + root() + ">\n  User guest\n  Group guest\n</Anonymous>\n");
    mkdirs(at("/etc/quillfold/apache"));
    ASSERT_EQ(
        std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=nas1 -keyout '" + pem +
                     "' -out '" + pem + ".crt' >/dev/null 2>&1 && cat '" + pem + ".crt' >>'" + pem + "'")
                        .c_str()),
        0);
    std::string out;
    // The databases of two case folders: Samba without its row and masquerading
    // on without an address; every switch on, TLS included, in a domain.  The
    // checker reads copies whose include paths point below the root.
    for (const char *c : {"masquerade-without-address", "every-switch-on"}) {
        sql().exec("DELETE FROM service_ftp; DELETE FROM service_cifs;" +
                   read_file(std::string(KSDB_CASES_DIR) + "/ftp-service/" + c + "/db.sql"));
        EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_FTP_SERVICE), 0) << log();
        put(dir + "ftps.conf", replace_all(get(dir + "ftps.conf"), " /etc/", " " + root() + "/etc/"));
        put("/proftpd.check.conf",
            replace_all(get("/etc/proftpd/proftpd.conf"), "Include /etc/", "Include " + root() + "/etc/"));
        EXPECT_EQ(run_checker("check-proftpd.sh", at("/proftpd.check.conf"), &out), 0) << c << "\n" << out;
    }
    put("/proftpd.check.conf", get("/proftpd.check.conf") + "NoSuchDirective on\n");
    EXPECT_NE(run_checker("check-proftpd.sh", at("/proftpd.check.conf"), &out), 0) << out;
}

// Guards: username-map types matched loosely; the SSH switch's failure.
TEST_F(ServiceTest, LookUps) {
    for (const char *bad : {"uname", "UNAME ", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(ksdb_valid_smb_username_map_type(bad), 0) << (bad ? bad : "NULL");
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), 0);  // no row
    sql().exec("INSERT INTO service_ssh (enabled) VALUES(1)");
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), 1);
    sql().exec("DROP TABLE service_ssh");
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), -1);
    EXPECT_TRUE(
        contains(log(), "(error) ksdb_is_service_ssh_enabled: Error in query (SELECT `service_ssh`)\n"));
}

// Guards: a text SNMP object identifier written; the platform's identifier not used.
TEST_F(ServiceTest, TheSnmpObjectIdentifierIsThePlatformsNumericOne) {
    object_id([](char *buffer, size_t size) -> int {
        return std::snprintf(buffer, size, "1.3.6.1.4.1.99999.7") < 0;
    });
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SNMP_SERVICE), 0) << log();
    EXPECT_EQ(get("/etc/snmp/snmpd.conf").find("sysDescr Kestrava OS\nsysObjectID 1.3.6.1.4.1.99999.7\n"),
              0u);
    object_id([](char *buffer, size_t size) -> int {
        return std::snprintf(buffer, size, "1.3.6.1\nrwcommunity evil") < 0;
    });
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SNMP_SERVICE), 0) << log();
    EXPECT_FALSE(contains(get("/etc/snmp/snmpd.conf"), "sysObjectID"));
    EXPECT_FALSE(contains(get("/etc/snmp/snmpd.conf"), "evil"));
    EXPECT_TRUE(contains(log(), "(warn) The SNMP system object identifier is not numeric"));
    // None at all: the case folder's export law.
    object_id([](char *, size_t) -> int { return 1; });
    for (const CaseSpec &spec : find_cases(KSDB_CASES_DIR))
        if (spec.name == "snmp-service/no-object-id") run_export_law(spec);
}

// Guards: host-name switches set by an address, unset by a name, crossed between
// protocols; a failed update not 3.
TEST_F(ServiceTest, HostNameLookupsAreOnExactlyWhenAnEntryNamesAHost) {
    sql().exec("INSERT INTO service_cifs (user_home_directory,hostname_lookups) VALUES(0,7);"
               "INSERT INTO service_ftp (use_reverse_dns) VALUES(7);"
               "INSERT INTO host (id,name) VALUES(1,'192.168.0.5'),(2,'10.0.0.0/8'),(3,'pc-1'),(4,'pc-2');"
               "INSERT INTO host_acl (share_id,host_id,proto,read,write) VALUES"
               "(1,1,'cifs',1,0),(1,2,'cifs',1,0),(1,3,'ftp',1,0),(1,4,'nfs',1,0)");
    const std::string switches =
        "SELECT hostname_lookups||(SELECT use_reverse_dns FROM service_ftp) FROM service_cifs";
    for (const char *proto : {"nfs", "CIFS", "afp", ""})
        EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), proto), 0);
    EXPECT_EQ(sql().scalar(switches), "77");
    EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), "cifs"), 0);
    EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), "ftp"), 0);
    EXPECT_EQ(sql().scalar(switches), "01");
    sql().exec("INSERT INTO host (id,name) VALUES(5,'nas2.example.org');"
               "INSERT INTO host_acl (share_id,host_id,proto,read,write) VALUES(1,5,'cifs',1,0)");
    EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), "cifs"), 0);
    EXPECT_EQ(sql().scalar(switches), "11");
    EXPECT_TRUE(contains(log(), "Found host name nas2.example.org in host acl. protocol is cifs.\n"));
    EXPECT_TRUE(contains(log(), "_ksdb_service_update_setting_by_share_cifs: set hostname_lookups to 1\n"));
    sql().exec("DROP TABLE service_ftp");
    EXPECT_EQ(ksdb_service_update_setting_by_share(h(), db(), "ftp"), KSDB_E_DB);
    EXPECT_TRUE(contains(log(), "Failed to UPDATE table service_ftp, column use_reverse_dns, value 1!\n"));
    EXPECT_TRUE(contains(log(), "Failed to call _ksdb_update_table_column_int!\n"));
}

}  // namespace
