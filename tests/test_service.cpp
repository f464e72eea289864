// Service settings and the samba, NFS and FTP service files, beyond what the
// case folders (tests/cases/*-service) say: hostile values in every guarded
// column, what a shell makes of the sourced files, readers that meet
// something other than a regular file, the daemons' own checkers, and the
// exported names and queries.
#define KSDB_MODULE "test_service"
#include "core/ksdb_areas.h"
#include "tests/support/test_support.h"

#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

std::string sql_text(const std::string &s) { return "'" + replace_all(s, "'", "''") + "'"; }

class ServiceTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0); }

    // Every file below the root but the scratch folder, with its content.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> out;
        for (const auto &e : std::filesystem::recursive_directory_iterator(root()))
            if (e.is_regular_file() && e.path().string().rfind(at("/tmp/"), 0) != 0)
                out[e.path().string()] = read_file(e.path().string());
        return out;
    }
    // A valid row in every table the exporters read.
    void valid_rows() {
        sql().exec(
            "INSERT INTO service_cifs (user_home_directory,security,workgroup,realm,orgunit,"
            "restrict_ou,no_sync_ads,oplocks,map_to_guest,password_server,allow_trusted_domains,"
            "domain_admin_user,hostname_lookups,idmap_backend) VALUES(0,'user','WORKGROUP',"
            "'EXAMPLE.COM','Sales','Staff','0',1,'Never','dc1',0,'Administrator',0,'rid');"
            "INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','c','1234-abcd',4096);"
            "INSERT INTO smb_username_map (id,unix_uname,smb_uname,type) VALUES(1,'alice','ALICE',"
            "'UNAME');"
            "INSERT INTO service_nfs (enabled,threads,nfsv4,domain) VALUES(1,8,1,'example.com');"
            "INSERT INTO service_ftp (enabled,enable_masquerade,masquerade) VALUES(1,1,'192.0.2.10');"
            "INSERT INTO service_replicate (enabled,owner) VALUES(1,'alice@example.com');"
            "INSERT INTO service_misc VALUES('MOTTO','my files',NULL,NULL);"
            "INSERT INTO service_snmp (location) VALUES('Server room 2')");
    }
};

// ---- hostile values ------------------------------------------------------------

// Which hostile texts a place refuses: all of them, all but a blank (a
// samba value may hold one), or only line breaks (the file escapes the
// rest).
enum Refuses { kAll, kAllButBlank, kLineBreaks };

struct GuardedColumn {
    int category;
    const char *table, *column, *row;  // the row as the refusal line names it ("" the value)
    const char *good;
    Refuses refuses;
};

#define CIFS(column, good) {KSDB_CAT_CIFS_SERVICE, "service_cifs", column, "rowid 1", good, kAllButBlank}
#define FTP(column, good) {KSDB_CAT_FTP_SERVICE, "service_ftp", column, "rowid 1", good, kAll}
const GuardedColumn kGuarded[] = {
    CIFS("allow_trusted_domains", "0"), CIFS("hostname_lookups", "0"), CIFS("map_to_guest", "Never"),
    CIFS("oplocks", "1"), CIFS("orgunit", "Sales"), CIFS("restrict_ou", "Staff"),
    CIFS("no_sync_ads", "0"), CIFS("idmap_backend", "rid"), CIFS("password_server", "dc1"),
    CIFS("realm", "EXAMPLE.COM"), CIFS("security", "user"), CIFS("workgroup", "WORKGROUP"),
    CIFS("domain_admin_user", "Administrator"),
    {KSDB_CAT_CIFS_SERVICE, "_volume", "lv_name", "id 1", "c", kAllButBlank},
    {KSDB_CAT_CIFS_SERVICE, "smb_username_map", "unix_uname", "id 1", "alice", kAll},
    {KSDB_CAT_CIFS_SERVICE, "smb_username_map", "smb_uname", "id 1", "ALICE", kAll},
    {KSDB_CAT_CIFS_SERVICE, "smb_username_map", "type", "id 1", "UNAME", kAll},
    {KSDB_CAT_NFS_SERVICE, "service_nfs", "domain", "rowid 1", "example.com", kAll},
    FTP("port", "21"), FTP("passive_range_min", "32768"), FTP("passive_range_max", "65535"),
    FTP("max_upload_rate", "0"), FTP("max_download_rate", "0"), FTP("masquerade", "192.0.2.10"),
    {KSDB_CAT_DEFAULT_SERVICE, "service_misc", "key", "", "MOTTO", kAll},
    {KSDB_CAT_DEFAULT_SERVICE, "service_misc", "val", "MOTTO", "my files", kLineBreaks},
    {KSDB_CAT_DEFAULT_SERVICE, "service_snmp", "location", "SNMP_LOCATION", "Server room 2", kLineBreaks},
    {KSDB_CAT_REPLICATE_SERVICE, "service_replicate", "owner", "rowid 1", "alice@example.com", kLineBreaks},
};
#undef CIFS
#undef FTP

// Each hostile text, put before and after the good value.
const std::pair<const char *, const char *> kHostile[] = {
    {"", "\n[evil]\npath = /"}, {"", "\r"},     {"[", ""},      {"", "]"},   {"", ";x"},
    {"#", ""},                  {"%U", ""},      {"\"", ""},     {"'", ""},   {"", "\\"},
    {"$(reboot)", ""},          {"`id`", ""},    {"../", ""},     {"", " Include"},
};

TEST_F(ServiceTest, HostileValuesInEveryGuardedColumnAreRefusedBeforeAnyFileIsWritten) {
    valid_rows();
    for (int cat : {KSDB_CAT_DEFAULT_SERVICE, KSDB_CAT_CIFS_SERVICE, KSDB_CAT_NFS_SERVICE,
                    KSDB_CAT_FTP_SERVICE, KSDB_CAT_REPLICATE_SERVICE})
        ASSERT_EQ(ksdb_export(h(), db(), cat), 0) << ksdb_cat2str(cat) << log();
    const auto written = files();
    for (const GuardedColumn &g : kGuarded) {
        const std::string set = std::string("UPDATE ") + g.table + " SET " + g.column + "=";
        for (const auto &[before, after] : kHostile) {
            const std::string bad = before + std::string(g.good) + after;
            const bool line_break = bad.find_first_of("\r\n") != std::string::npos;
            if ((g.refuses == kLineBreaks && !line_break) || (g.refuses == kAllButBlank && *after == ' '))
                continue;
            sql().exec(set + sql_text(bad) + " WHERE " + g.column + "=" + sql_text(g.good));
            // An integer column keeps "0\r" as the number 0: nothing hostile stored.
            if (sql().scalar(std::string("SELECT typeof(") + g.column + ") FROM " + g.table) == "integer")
                continue;
            const size_t mark = log().size();
            EXPECT_EQ(ksdb_export(h(), db(), g.category), KSDB_E_INVAL) << g.column << ": " << bad;
            const std::string row =
                *g.row ? g.row : replace_all(replace_all(bad, "\n", "\\x0a"), "\r", "\\x0d");
            EXPECT_NE(log().find(std::string("Refused ") + g.table + "." + g.column + " of '" + row + "'",
                                 mark),
                      std::string::npos)
                << bad << "\n" << log().substr(mark);
            EXPECT_EQ(files(), written) << g.column << ": " << bad;
            sql().exec(set + sql_text(g.good) + " WHERE " + g.column + "=" + sql_text(bad));
        }
        EXPECT_EQ(ksdb_export(h(), db(), g.category), 0) << g.column;
        EXPECT_EQ(files(), written) << g.column;
    }
}

// ---- the files a shell sources ---------------------------------------------------------

// Sources `file` with sh and gives the values of `names`, each ended by NUL.
std::vector<std::string> source(const std::string &file, const std::vector<std::string> &names) {
    std::string cmd = "sh -c '. \"$0\" && printf \"%s\\0\"";
    for (const std::string &n : names) cmd += " \"$" + n + "\"";
    cmd += "' '" + file + "'";
    std::vector<std::string> out(1);
    FILE *p = popen(cmd.c_str(), "r");
    for (int c; p && (c = fgetc(p)) != EOF;) {
        if (c)
            out.back() += static_cast<char>(c);
        else
            out.emplace_back();
    }
    if (p) pclose(p);
    out.pop_back();
    return out;
}

TEST_F(ServiceTest, SourcingTheSettingsFilesGivesTheStoredTextsAndRunsNothing) {
    const std::string marker = at("/injected");
    const std::vector<std::string> values = {
        "Server room 2",     "en;touch " + marker,       "$(touch " + marker + ")",
        "`touch " + marker + "`", "it's \"quoted\"",     "back\\slash\\",
        "~root:~/x",         "a|b&c>d<e (f) {g}",        "*?[x]!^ #h\t%p=",
    };
    // Free keys, a mapped text column and a mapped integer column holding text.
    std::vector<std::string> names;
    for (size_t i = 0; i < values.size(); ++i) {
        names.push_back("FREE_" + std::to_string(i));
        sql().exec("INSERT INTO service_misc (key,val) VALUES(" + sql_text(names.back()) + "," +
                   sql_text(values[i]) + ")");
    }
    sql().exec("INSERT INTO service_snmp (location) VALUES(" + sql_text(values[1]) + ")");
    sql().exec("INSERT INTO service_ssh (port) VALUES(" + sql_text(values[2]) + ")");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_DEFAULT_SERVICE), 0) << log();
    std::vector<std::string> want = values;
    want.push_back(values[1]);
    want.push_back(values[2]);
    names.push_back("SNMP_LOCATION");
    names.push_back("SSHPORT");
    EXPECT_EQ(source(at("/etc/default/services"), names), want);
    EXPECT_FALSE(exists(marker));

    // And the import reads the escaped texts back.
    sql().exec("DELETE FROM service_misc; DELETE FROM service_snmp");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_DEFAULT_SERVICE), 0) << log();
    for (size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(sql().scalar("SELECT val FROM service_misc WHERE key='FREE_" + std::to_string(i) + "'"),
                  values[i]);
    EXPECT_EQ(sql().scalar("SELECT location FROM service_snmp"), values[1]);

    sql().exec("DELETE FROM service_nfs; INSERT INTO service_nfs (threads,nfsv4) VALUES(8,0)");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_NFS_SERVICE), 0);
    EXPECT_EQ(source(at("/etc/default/nfs-kernel-server"),
                     {"RPCNFSDCOUNT", "RPCNFSDARGS", "RPCMOUNTDOPTS", "NEED_SVCGSSD"}),
              (std::vector<std::string>{"8", "--no-nfs-version 4", "--manage-gids --no-nfs-version 4", ""}));
}

// ---- readers ---------------------------------------------------------------------------

TEST_F(ServiceTest, ReadersRefuseWhatIsNotARegularFileWithoutWaiting) {
    put("/etc/samba/smb.conf", "[global]\n");
    put("/etc/proftpd/proftpd.conf", "Port 21\n");
    const std::pair<int, const char *> paths[] = {
        {KSDB_CAT_DEFAULT_SERVICE, "/etc/default/services"},
        {KSDB_CAT_CIFS_SERVICE, "/etc/quillfold/samba/usermap.conf"},
        {KSDB_CAT_CIFS_SERVICE, "/etc/samba/smb.conf"},
        {KSDB_CAT_FTP_SERVICE, "/etc/quillfold/proftpd/ftps.conf"},
        {KSDB_CAT_FTP_SERVICE, "/etc/proftpd/proftpd.conf"},
        {KSDB_CAT_FTP_SERVICE, "/etc/hostname"},
        {KSDB_CAT_ALL_SERVICE, "/etc/forked-daapd.conf"},
        {KSDB_CAT_REPLICATE_SERVICE, "/opt/replication/etc/registration.conf"},
    };
    for (const auto &[cat, path] : paths) {
        const std::string real = at(path), kept = real + ".kept";
        if (exists(real)) std::filesystem::rename(real, kept);
        mkdirs(std::filesystem::path(real).parent_path());
        ASSERT_EQ(mkfifo(real.c_str(), 0600), 0) << path;
        const int expected = cat == KSDB_CAT_ALL_SERVICE ? KSDB_E_STEP : KSDB_E_FILE;
        EXPECT_EQ(ksdb_import(h(), db(), cat), expected) << path;
        EXPECT_NE(log().find(std::string("(error) Cannot load ") + path + "\n"), std::string::npos);
        std::filesystem::remove(real);
        std::filesystem::create_directory(real);  // a folder is refused the same way
        EXPECT_EQ(ksdb_import(h(), db(), cat), expected) << path;
        std::filesystem::remove(real);
        if (exists(kept)) std::filesystem::rename(kept, real);
    }
}

// ---- the daemons' own checkers -------------------------------------------------------

class ServiceCheckerTest : public ServiceTest {
  protected:
    // Exports samba's files and checks a copy of smb.conf whose include
    // paths point below the root, with the include files the appliance
    // itself provides: the checker's status, its output in *out.
    int check_smb(std::string *out) {
        EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SERVICE), 0) << log();
        put("/etc/quillfold/samba/smb.conf.defaults", " server min protocol = SMB2\n");
        put("/etc/quillfold/samba/smb.conf.UNKNOWN", "");  // testparm expands %a to UNKNOWN
        put("/etc/quillfold/samba/smb.conf.overrides",
            "include = " + at("/etc/quillfold/samba/Shares.conf.admin") + "\n");
        put("/etc/quillfold/samba/Shares.conf", "[data]\n path = /c/data\n");
        put("/etc/quillfold/samba/Shares.conf.", "");  // %U is empty
        put("/etc/quillfold/samba/addons/addons.conf", "");
        put("/run/usb/samba/Shares.conf", "");
        std::string text = get("/etc/samba/smb.conf");
        text = replace_all(text, " /etc/quillfold/", " " + root() + "/etc/quillfold/");
        put("/smb.check.conf", replace_all(text, " /run/usb/", " " + root() + "/run/usb/"));
        return run_checker("check-smb.sh", at("/smb.check.conf"), out);
    }
    // The same for proftpd.conf and ftps.conf, with a throw-away certificate.
    int check_proftpd(std::string *out) {
        EXPECT_EQ(ksdb_export(h(), db(), KSDB_CAT_FTP_SERVICE), 0) << log();
        const std::string dir = "/etc/quillfold/proftpd/";
        put(dir + "proftpd.conf.overrides", "");
        put(dir + "User.conf", "<Limit LOGIN>\n  AllowAll\n</Limit>\n");
        put(dir + "Anonymous.conf", "<Anonymous " + root() + ">\n  User guest\n  Group guest\n</Anonymous>\n");
        mkdirs(at("/etc/quillfold/apache"));
        const std::string pem = at("/etc/quillfold/apache/apache2.pem");
        EXPECT_EQ(std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=nas1 -keyout '" +
                               pem + "' -out '" + pem + ".crt' >/dev/null 2>&1 && cat '" + pem +
                               ".crt' >>'" + pem + "'").c_str()), 0);
        put(dir + "ftps.conf", replace_all(get(dir + "ftps.conf"), " /etc/", " " + root() + "/etc/"));
        put("/proftpd.check.conf",
            replace_all(get("/etc/proftpd/proftpd.conf"), "Include /etc/", "Include " + root() + "/etc/"));
        return run_checker("check-proftpd.sh", at("/proftpd.check.conf"), out);
    }
};

TEST_F(ServiceCheckerTest, SambaAcceptsTheGeneratedFilesInEveryState) {
    if (!have_program("testparm")) GTEST_SKIP() << "testparm is not installed (scripts/setup-deps)";
    std::string out;
    // Only the settings file read yet: the unset parameters are commented out.
    sql().exec("INSERT INTO service_cifs (user_home_directory) VALUES(0)");
    EXPECT_EQ(check_smb(&out), 0) << out;
    // Stand-alone, with an administrative share.
    sql().exec("UPDATE service_cifs SET security='user',workgroup='WORKGROUP',oplocks=1,"
               "hostname_lookups=0,allow_trusted_domains=0;"
               "INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','c','1234-abcd',4096);"
               "INSERT INTO service_misc (key,val) VALUES('LANGUAGE','de')");
    EXPECT_EQ(check_smb(&out), 0) << out;
    // A domain member with the home folders (samba warns about a named
    // password server: the usual domain set-up leaves it "*").
    sql().exec("UPDATE service_cifs SET user_home_directory=1,security='ads',realm='EXAMPLE.COM',"
               "workgroup='EXAMPLE',allow_trusted_domains=1,join_ads_failed=1,idmap_backend='tdb'");
    EXPECT_EQ(check_smb(&out), 0) << out;
    // The check can fail.
    put("/smb.check.conf", get("/smb.check.conf") + " oplocks = maybe\n");
    EXPECT_NE(run_checker("check-smb.sh", at("/smb.check.conf"), &out), 0) << out;
}

TEST_F(ServiceCheckerTest, ProftpdAcceptsTheGeneratedFilesInEveryState) {
    if (!have_program("proftpd") || !have_program("openssl"))
        GTEST_SKIP() << "proftpd or openssl is not installed (scripts/setup-deps)";
    std::string out;
    // Samba without its row, masquerading on without an address.
    sql().exec("INSERT INTO service_ftp (enabled,enable_masquerade,masquerade) VALUES(1,1,'')");
    EXPECT_EQ(check_proftpd(&out), 0) << out;
    // Every switch on, TLS included, in a domain.
    sql().exec("INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'ads');"
               "UPDATE service_ftp SET auth_mode='anonymous',masquerade='192.0.2.10',"
               "upload_resume=1,user_home_directory=1,ftps=1,server_transfer_log=1,"
               "max_upload_rate=100,max_download_rate=512,force_ftps=1,use_reverse_dns=1");
    EXPECT_EQ(check_proftpd(&out), 0) << out;
    put("/proftpd.check.conf", get("/proftpd.check.conf") + "NoSuchDirective on\n");
    EXPECT_NE(run_checker("check-proftpd.sh", at("/proftpd.check.conf"), &out), 0) << out;
}

// ---- exported names and queries --------------------------------------------------------

TEST_F(ServiceTest, ExportedNamesAndQueries) {
    EXPECT_STREQ(TABLE_SMB_USERNAME_MAP, "smb_username_map");
    EXPECT_STREQ(TABLE_SMB_USERNAME_MAP_TYPE_HASH, "HASH");
    EXPECT_STREQ(TABLE_SMB_USERNAME_MAP_TYPE_UNAME, "UNAME");
    EXPECT_EQ(ksdb_valid_smb_username_map_type("UNAME"), 1);
    EXPECT_EQ(ksdb_valid_smb_username_map_type("HASH"), 1);
    for (const char *bad : {"uname", "UNAME ", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(ksdb_valid_smb_username_map_type(bad), 0) << (bad ? bad : "NULL");

    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), 0);  // no row
    sql().exec("INSERT INTO service_ssh (enabled) VALUES(1)");
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), 1);
    sql().exec("DROP TABLE service_ssh");
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), -1);
    EXPECT_NE(log().find("(error) ksdb_is_service_ssh_enabled: Error in query (SELECT `service_ssh`)\n"),
              std::string::npos);
}

TEST_F(ServiceTest, DosCodePageFollowsTheLanguage) {
    sql().exec("INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user')");
    for (const auto &[lang, page] : std::vector<std::pair<std::string, std::string>>{
             {"ja", "CP932"}, {"ko", "CP949"}, {"zh-tw", "CP950"}, {"zh-cn", "CP936"},
             {"cz", "CP1250"}, {"hu", "CP1250"}, {"pl", "CP1250"}, {"ru", "CP1251"},
             {"fr", "CP1252"}, {"en", "CP1252"}}) {
        sql().exec("DELETE FROM service_misc; INSERT INTO service_misc (key,val) VALUES('LANGUAGE'," +
                   sql_text(lang) + ")");
        ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SERVICE), 0);
        EXPECT_NE(get("/etc/samba/smb.conf").find("\n dos charset = " + page + "\n"), std::string::npos)
            << lang;
    }
}

}  // namespace
