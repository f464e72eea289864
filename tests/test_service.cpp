// Service settings and the samba, NFS and FTP service files: the settings
// file /etc/default/services both ways, the settings read back from the
// daemons' files, the files written from the tables (compared with text
// written out by hand), and the daemons' own checkers on what is written.
#define KSDB_MODULE "test_service"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "tests/support/test_support.h"

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

using namespace ksdb_test;

namespace {

constexpr const char *kIncludeLines =
    "include = /etc/quillfold/samba/smb.conf.%a\n"
    "include = /etc/quillfold/samba/smb.conf.overrides\n"
    "include = /etc/quillfold/samba/Shares.conf\n"
    "include = /etc/quillfold/samba/Shares.conf.%U\n"
    "include = /etc/quillfold/samba/addons/addons.conf\n"
    "include = /run/usb/samba/Shares.conf\n";

// smb.conf of a stand-alone appliance with the settings of standalone_cifs().
const std::string kSmbStandalone = std::string(
    "# This file is auto-generated.  Do not modify!\n"
    "\n"
    "[global]\n"
    " include = /etc/quillfold/samba/smb.conf.defaults\n"
    " host msdfs = yes\n"
    "#dashboard: allow trusted domains = 0\n"
    " dos charset = CP1252\n"
    " guest account = guest\n"
    " hostname lookups = 0\n"
    " invalid users = root\n"
    " load printers = 0\n"
    " log level = 0 auth:2\n"
    " map to guest = bad user\n"
    " max log size = 512\n"
    " name resolve order = lmhosts host wins bcast\n"
    " oplocks = 1\n"
    " passdb backend = tdbsam\n"
    "#dashboard:#dashboard:orgunit = \n"
    "#dashboard:#dashboard:restrict_ou = \n"
    "#dashboard:#dashboard:no_sync_ads = \n"
    "#dashboard:idmap config * : backend = rid\n"
    " idmap config * : range = 32768 - 2147483647\n"
    " passwd program = \"/usr/bin/passwd %u\"\n"
    "#dashboard:password server = *\n"
    " realm = \n"
    " security = user\n"
    " server string = \"%h\"\n"
    " template homedir = /home/%U\n"
    " unix charset = UTF-8\n"
    " unix password sync = 1\n"
    " veto files = /Network Trash Folder/Temporary Items/\n"
    " workgroup = WORKGROUP\n"
    "#dashboard:\n"
    "#dashboard:domain_admin_user = \n"
    " username map = /etc/quillfold/samba/usermap.conf\n"
    "\n") + kIncludeLines +
    "\n"
    "#[homes]\n"
    "# browseable = 0\n"
    "# writeable = 1\n"
    "# public = 0\n"
    "# valid users = %D\\%S\n"
    "\n";

// smb.conf in a domain with the settings of domain_cifs().
const std::string kSmbDomain = std::string(
    "# This file is auto-generated.  Do not modify!\n"
    "\n"
    "[global]\n"
    " include = /etc/quillfold/samba/smb.conf.defaults\n"
    " host msdfs = yes\n"
    "  allow trusted domains = 1\n"
    " dos charset = CP932\n"
    " guest account = guest\n"
    " hostname lookups = 1\n"
    " invalid users = root\n"
    " load printers = 0\n"
    " log level = 0 auth:2\n"
    " map to guest = Never\n"
    " max log size = 512\n"
    " name resolve order = lmhosts host wins bcast\n"
    " oplocks = 0\n"
    " passdb backend = tdbsam\n"
    " #dashboard:orgunit = Sales\n"
    " #dashboard:restrict_ou = OU=Staff\n"
    " #dashboard:no_sync_ads = 0\n"
    " idmap config * : backend = tdb\n"
    " idmap config * : range = 32768 - 2147483647\n"
    " passwd program = \"/usr/bin/passwd %u\"\n"
    " password server = dc1.example.com\n"
    " realm = EXAMPLE.COM\n"
    " security = ads\n"
    " server string = \"%h\"\n"
    " template homedir = /home/%D/%U\n"
    " unix charset = UTF-8\n"
    " unix password sync = 1\n"
    " veto files = /Network Trash Folder/Temporary Items/\n"
    " workgroup = EXAMPLE\n"
    " client signing = mandatory\n"
    "#dashboard:domain_admin_user = Administrator\n"
    " username map = /etc/quillfold/samba/usermap.conf\n"
    "\n") + kIncludeLines +
    "\n"
    "[homes]\n"
    " browseable = 0\n"
    " writeable = 1\n"
    " public = 0\n"
    " valid users = %D\\%S\n"
    "\n";

const std::string kAdminHome =
    "[home]\n"
    "  path = \"/home\"\n"
    "  admin users = \"admin\",\"Administrator\"\n"
    "  comment = \"Private user folders\"\n"
    "  writeable = 1\n"
    "  valid users = \"admin\",\"Administrator\"\n";

// proftpd.conf with every switch off: the service_ftp defaults on a
// stand-alone appliance.
const std::string kProftpdPlain =
    "# Do not edit.\n"
    "Include /etc/quillfold/proftpd/proftpd.conf.overrides\n"
    "ServerName \"Ulmaris Kestrava\"\n"
    "ServerType standalone\n"
    "DeferWelcome off\n"
    "MultilineRFC2228 on\n"
    "DefaultServer on\n"
    "ShowSymlinks on\n"
    "AllowOverwrite on\n"
    "AllowStoreRestart off\n"
    "UseReverseDNS off\n"
    "IdentLookups off\n"
    "TimesGMT off\n"
    "WtmpLog off\n"
    "ServerLog NONE\n"
    "SystemLog /var/log/proftpd.log\n"
    "TransferLog NONE\n"
    "BanLog /var/log/proftpd.log\n"
    "MaxLoginAttempts 2\n"
    "BanEngine on\n"
    "BanTable /ftp_ban.tbl\n"
    "BanOnEvent MaxLoginAttempts 5/00:10:00 00:15:00\n"
    "TimeoutNoTransfer 600\n"
    "TimeoutStalled 600\n"
    "TimeoutIdle 1200\n"
    "DisplayLogin welcome.msg\n"
    "DisplayChdir .message\n"
    "DenyFilter \\*.*/\n"
    "PersistentPasswd on\n"
    "Port 21\n"
    "\n"
    "DynMasqRefresh 7200\n"
    "PassivePorts 32768 65535\n"
    "AllowForeignAddress off\n"
    "MaxInstances 30\n"
    "User guest\n"
    "Group guest\n"
    "RequireValidShell off\n"
    "DefaultChdir /\n"
    "\n"
    "<Directory /*>\n"
    "Umask 022 022\n"
    "AllowOverwrite on\n"
    "</Directory>\n"
    "CapabilitiesEngine off\n"
    "#TransferRate STOR 0\n"
    "#TransferRate RETR 0\n"
    "#Include /etc/quillfold/proftpd/ftps.conf\n"
    "Include /etc/quillfold/proftpd/User.conf\n"
    "Include /etc/quillfold/proftpd/proftpd.conf.overrides\n";

// proftpd.conf with every switch on, in a domain.
const std::string kProftpdFull =
    "# Do not edit.\n"
    "Include /etc/quillfold/proftpd/proftpd.conf.overrides\n"
    "ServerName \"Ulmaris Kestrava\"\n"
    "ServerType standalone\n"
    "DeferWelcome off\n"
    "MultilineRFC2228 on\n"
    "DefaultServer on\n"
    "ShowSymlinks on\n"
    "AllowOverwrite on\n"
    "AllowStoreRestart on\n"
    "UseReverseDNS on\n"
    "IdentLookups off\n"
    "TimesGMT off\n"
    "WtmpLog off\n"
    "ServerLog /var/log/proftpd.log\n"
    "SystemLog /var/log/proftpd.log\n"
    "TransferLog /var/log/proftpd.log\n"
    "BanLog /var/log/proftpd.log\n"
    "MaxLoginAttempts 2\n"
    "BanEngine on\n"
    "BanTable /ftp_ban.tbl\n"
    "BanOnEvent MaxLoginAttempts 5/00:10:00 00:15:00\n"
    "TimeoutNoTransfer 600\n"
    "TimeoutStalled 600\n"
    "TimeoutIdle 1200\n"
    "DisplayLogin welcome.msg\n"
    "DisplayChdir .message\n"
    "DenyFilter \\*.*/\n"
    "PersistentPasswd off\n"
    "Port 2121\n"
    "MasqueradeAddress 192.0.2.10\n"
    "DynMasqRefresh 7200\n"
    "PassivePorts 40000 40100\n"
    "AllowForeignAddress off\n"
    "MaxInstances 30\n"
    "User guest\n"
    "Group guest\n"
    "RequireValidShell on\n"
    "DefaultChdir /\n"
    "ListOptions -n\n"
    "<Directory /*>\n"
    "Umask 022 022\n"
    "AllowOverwrite on\n"
    "</Directory>\n"
    "CapabilitiesEngine off\n"
    "TransferRate STOR 100\n"
    "TransferRate RETR 512\n"
    "Include /etc/quillfold/proftpd/ftps.conf\n"
    "Include /etc/quillfold/proftpd/Anonymous.conf\n"
    "Include /etc/quillfold/proftpd/proftpd.conf.overrides\n"
    "<Directory \"/var/ftp/home\">\n"
    "  HideFiles none\n"
    "  HideNoAccess on\n"
    "  <Limit WRITE READ>\n"
    "    Order deny,allow\n"
    "    Allow from all\n"
    "  </Limit>\n"
    "</Directory>\n";

std::string ftps_conf(const char *required) {
    return std::string("<IfModule mod_tls.c>\n"
                       "  TLSEngine on\n"
                       "  TLSLog /var/log/proftpd.log\n"
                       "  TLSProtocol TLSv1 TLSv1.1 TLSv1.2\n"
                       "\n"
                       "  # Are clients required to use FTP over TLS when talking to this server?\n"
                       "  TLSRequired ") +
           required +
           "\n"
           "\n"
           "  # Server's certificate\n"
           "  TLSRSACertificateFile /etc/quillfold/apache/apache2.pem\n"
           "\n"
           "  # Authenticate clients that want to use FTP over TLS?\n"
           "  TLSVerifyClient off\n"
           "\n"
           "  TLSOptions NoSessionReuseRequired\n"
           "</IfModule>\n";
}

class ServiceTest : public RootTest {
  protected:
    void SetUp() override { ASSERT_EQ(ksdb_create(h(), db()), 0); }

    bool logged(const std::string &text) { return log().find(text) != std::string::npos; }
    // Files left in the root's temporary folder (abandoned exports leave none).
    std::vector<std::string> tmp_files() const {
        std::vector<std::string> names;
        for (const auto &e : std::filesystem::directory_iterator(at("/tmp")))
            names.push_back(e.path().filename().string());
        return names;
    }
    // Every row of every table (temporary ones included), for comparing the
    // whole database before and after.
    std::vector<std::string> dump() {
        std::vector<std::string> out;
        for (const std::string &t :
             sql().column("SELECT name FROM sqlite_master WHERE type='table' UNION ALL "
                          "SELECT name FROM sqlite_temp_master WHERE type='table' ORDER BY 1")) {
            if (t.rfind("sqlite_", 0) == 0) continue;
            for (const std::string &r : sql().rows("SELECT * FROM `" + t + "`"))
                out.push_back(t + ": " + r);
        }
        return out;
    }

    void standalone_cifs() {
        sql().exec("INSERT INTO service_cifs (user_home_directory,security,workgroup,oplocks,"
                   "hostname_lookups,allow_trusted_domains,join_ads_failed) "
                   "VALUES(0,'user','WORKGROUP',1,0,0,0)");
        sql().exec("INSERT INTO service_misc (key,val) VALUES('LANGUAGE','de')");
    }
    void domain_cifs() {
        sql().exec("INSERT INTO service_cifs (user_home_directory,security,workgroup,realm,orgunit,"
                   "restrict_ou,no_sync_ads,oplocks,map_to_guest,password_server,"
                   "allow_trusted_domains,domain_admin_user,hostname_lookups,join_ads_failed,"
                   "idmap_backend) VALUES(1,'ads','EXAMPLE','EXAMPLE.COM','Sales','OU=Staff','0',"
                   "0,'Never','dc1.example.com',1,'Administrator',1,1,'tdb')");
        sql().exec("INSERT INTO service_misc (key,val) VALUES('LANGUAGE','ja')");
    }
    void full_ftp() {
        sql().exec("INSERT INTO service_ftp (enabled,port,auth_mode,passive_range_min,"
                   "passive_range_max,enable_masquerade,masquerade,upload_resume,"
                   "user_home_directory,ftps,server_transfer_log,max_upload_rate,"
                   "max_download_rate,force_ftps,use_reverse_dns) VALUES(1,2121,'anonymous',40000,"
                   "40100,1,'192.0.2.10',1,1,1,1,100,512,1,1)");
    }
};

// ---- /etc/default/services ----------------------------------------------------

TEST_F(ServiceTest, DefaultServicesImportSetsColumnsAndRecordsEveryKey) {
    sql().exec("INSERT INTO service_avahi VALUES(1,1,1,1,1,1,1)");
    put("/etc/default/services",
        "# written by the set-up scripts\n"
        "USER_HOME_DIRECTORY=1\n"
        "SSHPORT=2222\n"
        "  SSH=1\n"
        "LANGUAGE=de\n"
        "NFS_DOMAIN=\n"
        "SNMP_LOCATION=my\\ files\n"
        "AVAHI=0\n"
        "MOTTO=it\\'s\\ \\$HOME\n"
        "NOVALUE\n");
    ASSERT_EQ(ksdb_default_service_import(h(), db()), 0);

    EXPECT_EQ(sql().scalar("SELECT port FROM service_ssh"), "2222");
    EXPECT_EQ(sql().scalar("SELECT enabled FROM service_ssh"), "1");
    EXPECT_EQ(sql().scalar("SELECT user_home_directory FROM service_cifs"), "1");
    EXPECT_EQ(sql().rows("SELECT domain, domain IS NULL FROM service_nfs"),
              (std::vector<std::string>{"|0"}));
    EXPECT_EQ(sql().scalar("SELECT location FROM service_snmp"), "my files");
    // The AVAHI keys are only recorded: the announcement settings own the column.
    EXPECT_EQ(sql().scalar("SELECT enabled FROM service_avahi"), "1");
    EXPECT_EQ(sql().rows("SELECT key,val,table_name,column_name FROM service_misc ORDER BY key"),
              (std::vector<std::string>{
                  "AVAHI|0|service_avahi|enabled",
                  "LANGUAGE|de|<NULL>|<NULL>",
                  "MOTTO|it's $HOME|<NULL>|<NULL>",
                  "NFS_DOMAIN||service_nfs|domain",
                  "NOVALUE||<NULL>|<NULL>",
                  "SNMP_LOCATION|my files|service_snmp|location",
                  "SSH|1|service_ssh|enabled",
                  "SSHPORT|2222|service_ssh|port",
                  "USER_HOME_DIRECTORY|1|service_cifs|user_home_directory",
              }));
    EXPECT_TRUE(logged("(debug) ksdb_default_service_import() ==> 0 ("));

    // A second import replaces the recorded value; strtol reads "abc" as 0.
    put("/etc/default/services", "SSHPORT=abc\n");
    ASSERT_EQ(ksdb_service_import(h(), db()), 0);
    EXPECT_EQ(sql().scalar("SELECT port FROM service_ssh"), "0");
    EXPECT_EQ(sql().rows("SELECT val FROM service_misc WHERE key='SSHPORT'"),
              (std::vector<std::string>{"abc"}));
}

TEST_F(ServiceTest, AnUnknownKeyLandsOnlyInServiceMisc) {
    const std::vector<std::string> before = dump();
    put("/etc/default/services", "FUTURE_FEATURE=1\n");
    ASSERT_EQ(ksdb_default_service_import(h(), db()), 0);
    std::vector<std::string> expected = before;
    expected.push_back("service_misc: FUTURE_FEATURE|1|<NULL>|<NULL>");
    std::vector<std::string> after = dump();
    std::sort(expected.begin(), expected.end());
    std::sort(after.begin(), after.end());
    EXPECT_EQ(after, expected);
}

TEST_F(ServiceTest, AMissingSettingsFileIsFineExceptForTheServiceCategory) {
    EXPECT_EQ(ksdb_default_service_import(h(), db()), 0);
    EXPECT_TRUE(logged("(info) Cannot load /etc/default/services\n"));
    EXPECT_EQ(ksdb_service_import(h(), db()), KSDB_E_FILE);
    EXPECT_TRUE(logged("(error) Cannot load /etc/default/services\n"));
    EXPECT_TRUE(logged("(error) ksdb_service_import() ==> 5 ("));
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_DEFAULT_SERVICE), 0);
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_UPS_SERVICE), 0);
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_SERVICE), KSDB_E_FILE);
}

TEST_F(ServiceTest, AFailedColumnWriteStopsTheImportAndTheDriverRollsBack) {
    // Without its USER_HOME_DIRECTORY line the CIFS row cannot be made:
    // user_home_directory is NOT NULL.
    put("/etc/default/services", "SSH=1\nSAMBA=1\nSSHPORT=2222\n");
    EXPECT_EQ(ksdb_default_service_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Failed to INSERT INTO service_cifs\n"));
    EXPECT_EQ(sql().scalar("SELECT port FROM service_ssh"), "<NULL>");  // later lines not read
    sql().exec("DELETE FROM service_ssh; DELETE FROM service_misc");

    const std::vector<std::string> before = dump();
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_DEFAULT_SERVICE), KSDB_E_DB);
    EXPECT_EQ(dump(), before);
}

TEST_F(ServiceTest, DefaultServicesExportWritesMappedValuesRawAndFreeValuesEscaped) {
    sql().exec("INSERT INTO service_cifs (user_home_directory,user_home_directory_recycle,"
               "user_home_directory_recycle_max_days,enabled) VALUES(1,1,30,1)");
    sql().exec("INSERT INTO service_afp (enabled,user_home_directory) VALUES(0,1)");
    sql().exec("INSERT INTO service_ftp (enabled) VALUES(1)");
    sql().exec("INSERT INTO service_nfs (enabled,threads,nfsv4,domain) VALUES(1,8,1,'example.com')");
    sql().exec("INSERT INTO account_default (disallow_password_change) VALUES(1)");
    sql().exec("INSERT INTO service_rsync (enabled) VALUES(0)");
    sql().exec("INSERT INTO service_http (enabled,use_password,share_name,http_admin) "
               "VALUES(1,0,'web',1)");
    sql().exec("INSERT INTO service_https (enabled,port,ssl_key_host) VALUES(1,443,'nas.local')");
    sql().exec("INSERT INTO service_dlna (enabled) VALUES(1)");
    sql().exec("INSERT INTO service_avahi VALUES(1,1,0,1,0,1,1)");
    sql().exec("INSERT INTO service_snmp (enabled,contact,location) "
               "VALUES(1,'admin@example.com','my files')");
    sql().exec("INSERT INTO service_ssh (enabled,port,ui_enabled,remote_enabled,remote_port) "
               "VALUES(1,22,1,0,2222)");
    sql().exec("INSERT INTO service_misc VALUES('LANGUAGE','de',NULL,NULL)");
    sql().exec("INSERT INTO service_misc VALUES('MOTTO','my files',NULL,NULL)");
    sql().exec("INSERT INTO service_misc VALUES('SSHPORT','22','service_ssh','port')");
    sql().exec("INSERT INTO service_misc VALUES('GREETING','it''s $HOME',NULL,NULL)");

    ASSERT_EQ(ksdb_default_service_export(h(), db()), 0);
    EXPECT_EQ(get("/etc/default/services"),
              "USER_HOME_DIRECTORY=1\n"
              "USER_HOME_DIRECTORY_AFP=1\n"
              "USER_HOME_DIRECTORY_FTP=0\n"
              "USER_HOME_DIRECTORY_NFS=0\n"
              "USER_HOME_DIRECTORY_RECYCLE=1\n"
              "USER_HOME_DIRECTORY_RECYCLE_MAX_DAYS=30\n"
              "USER_HOME_DIRECTORY_RECYCLE_MAX_SIZE=\n"
              "DISALLOW_PASSOWRD_CHANGE=1\n"
              "SAMBA=1\n"
              "NETATALK=0\n"
              "PROFTPD=1\n"
              "RSYNC=0\n"
              "UPNP=\n"
              "APPSTALL=\n"
              "NFS=1\n"
              "NFS_THREADS=8\n"
              "NFS_V4=1\n"
              "NFS_DOMAIN=example.com\n"
              "HTTP_WEBSERVER_SHARE=web\n"
              "HTTP_WEBSERVER_SHARE_USE_PASSWORD=0\n"
              "HTTPS_PORT=443\n"
              "HTTPS_SSL_KEY_HOST=nas.local\n"
              "HTTP=1\n"
              "HTTP_ADMIN=1\n"
              "UPNPAV=1\n"
              "BRISKTIVOD=0\n"
              "AVAHI=1\n"
              "AVAHI_AFP=0\n"
              "AVAHI_QUILLFOLD=1\n"
              "AVAHI_PRINTER=0\n"
              "AVAHI_TIMEMACHINE=1\n"
              "SNMPD=1\n"
              "SNMP_ALLOW_HOST=default\n"
              "SNMP_COMMUNITY=public\n"
              "SNMP_TRAP_DESTINATION=\n"
              "SNMP_CONTACT=admin@example.com\n"
              "SNMP_LOCATION=my files\n"
              "SSH=1\n"
              "SSHPORT=22\n"
              "SSH_UI_ENABLE=1\n"
              "REMOTE_ACCESS_SSH=0\n"
              "REMOTE_ACCESS_SSH_PORT=2222\n"
              "SSH_PASSWORD_AUTHENTICATION=1\n"
              "LANGUAGE=de\n"
              "MOTTO=my\\ files\n"
              "GREETING=it\\'s\\ \\$HOME\n");
    struct stat st;
    ASSERT_EQ(stat(at("/etc/default/services").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);

    // The file reads back to the same values, and the AVAHI lines keep
    // what service_avahi holds whatever the file said.
    std::string text = get("/etc/default/services");
    put("/etc/default/services", replace_all(text, "AVAHI=1\n", "AVAHI=0\n"));
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_DEFAULT_SERVICE), 0);
    EXPECT_EQ(sql().scalar("SELECT val FROM service_misc WHERE key='MOTTO'"), "my files");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_SERVICE), 0);  // the service-switch exporter
    std::string again = get("/etc/default/services");
    // Empty integers read back as 0 (strtol), which is what the tables now hold.
    text = replace_all(text, "USER_HOME_DIRECTORY_RECYCLE_MAX_SIZE=\n",
                       "USER_HOME_DIRECTORY_RECYCLE_MAX_SIZE=0\n");
    text = replace_all(text, "UPNP=\n", "UPNP=0\n");
    text = replace_all(text, "APPSTALL=\n", "APPSTALL=0\n");
    EXPECT_EQ(again, text);
    EXPECT_TRUE(logged("(debug) ksdb_service_switch_export() ==> 0 ("));
}

TEST_F(ServiceTest, AFailedQueryKeepsTheOldSettingsFile) {
    put("/etc/default/services", "OLD=1\n");
    sql().exec("DROP TABLE service_snmp");
    EXPECT_EQ(ksdb_default_service_export(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Query Error for SELECT service_snmp.enabled\n"));
    EXPECT_TRUE(logged("(error) ksdb_default_service_export() ==> 3 ("));
    EXPECT_EQ(get("/etc/default/services"), "OLD=1\n");
    EXPECT_TRUE(tmp_files().empty());

    sql().exec("DROP TABLE service_misc");
    sql().exec("CREATE TABLE service_snmp (enabled INT, allow_host TEXT, community TEXT, "
               "trap_destination TEXT, contact TEXT, location TEXT)");
    EXPECT_EQ(ksdb_default_service_export(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Query Error for SELECT service_misc\n"));
    EXPECT_EQ(get("/etc/default/services"), "OLD=1\n");
    EXPECT_TRUE(tmp_files().empty());
}

// ---- samba ------------------------------------------------------------------------

TEST_F(ServiceTest, SambaImportReadsGlobalsBehindThePrefixAndSkipsComments) {
    sql().exec("INSERT INTO service_cifs (user_home_directory,workgroup) VALUES(0,'OLD')");
    put("/etc/samba/smb.conf",
        "[global]\n"
        " workgroup = OFFICE\n"
        "# workgroup = X\n"
        "; a comment samba knows\n"
        "#dashboard:orgunit = Sales\n"
        "#dashboard: allow trusted domains = 1\n"
        " security = ads\n"
        "\toplocks = 1\r\n"
        " map to guest = Bad User\n"
        " idmap config * : backend = tdb\n"
        " hostname lookups = yes\n"
        "[share]\n"
        " path = /c/share\n");
    ASSERT_EQ(ksdb_cifs_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT workgroup,orgunit,allow_trusted_domains,security,oplocks,"
                         "map_to_guest,idmap_backend,hostname_lookups FROM service_cifs"),
              (std::vector<std::string>{"OFFICE|Sales|1|ads|1|Bad User|tdb|0"}));
    // No user-name map file: nothing more to read.
    EXPECT_TRUE(logged("(error) Cannot load /etc/quillfold/samba/usermap.conf\n"));
}

TEST_F(ServiceTest, SambaImportWithoutSmbConfReadsNothing) {
    put("/etc/quillfold/samba/usermap.conf", "#UNAME\nalice = ALICE\n");
    EXPECT_EQ(ksdb_cifs_service_import(h(), db()), 0);
    EXPECT_TRUE(logged("(error) Cannot load /etc/samba/smb.conf\n"));
    EXPECT_EQ(sql().scalar("SELECT COUNT(*) FROM smb_username_map"), "0");
}

TEST_F(ServiceTest, SambaImportNeedsTheRowMadeByTheSettingsFile) {
    put("/etc/samba/smb.conf", "[global]\n workgroup = OFFICE\n");
    EXPECT_EQ(ksdb_cifs_service_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Failed to INSERT INTO service_cifs\n"));
}

TEST_F(ServiceTest, UserNameMapImport) {
    sql().exec("INSERT INTO service_cifs (user_home_directory) VALUES(0)");
    put("/etc/samba/smb.conf", "[global]\n");
    put("/etc/quillfold/samba/usermap.conf",
        "#UNAME\n"
        "alice = ALICE\n"
        "#FOO\n"
        "a = b\n"
        "#\n"
        "c = d\n"
        "carol = CAROL\n"
        "#HASH\n"
        "bob=DOMAIN\\bob\n"
        "#UNAME\n"
        "#HASH\n"
        "dave = DAVE\n"
        "#uname\n"
        "erin = ERIN\n");
    ASSERT_EQ(ksdb_cifs_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT unix_uname,smb_uname,type FROM smb_username_map ORDER BY id"),
              (std::vector<std::string>{"alice|ALICE|UNAME", "bob|DOMAIN\\bob|HASH"}));
    EXPECT_TRUE(logged("(error) _ksdb_cifs_service_username_map_import: Unknown type FOO!\n"));
    EXPECT_TRUE(logged("(error) _ksdb_cifs_service_username_map_import: Unknown type uname!\n"));
    EXPECT_EQ(ksdb_valid_smb_username_map_type("UNAME"), 1);
    EXPECT_EQ(ksdb_valid_smb_username_map_type("HASH"), 1);
    EXPECT_EQ(ksdb_valid_smb_username_map_type("uname"), 0);
    EXPECT_EQ(ksdb_valid_smb_username_map_type("UNAME "), 0);
    EXPECT_EQ(ksdb_valid_smb_username_map_type(nullptr), 0);
    EXPECT_STREQ(TABLE_SMB_USERNAME_MAP, "smb_username_map");
    EXPECT_STREQ(TABLE_SMB_USERNAME_MAP_TYPE_HASH, "HASH");
    EXPECT_STREQ(TABLE_SMB_USERNAME_MAP_TYPE_UNAME, "UNAME");
}

TEST_F(ServiceTest, UserNameMapImportedTwiceFailsAndTheDriverKeepsTheFirstImport) {
    put("/etc/default/services", "USER_HOME_DIRECTORY=0\n");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_DEFAULT_SERVICE), 0);
    put("/etc/samba/smb.conf", "[global]\n workgroup = OFFICE\n");
    put("/etc/quillfold/samba/usermap.conf", "#UNAME\nalice = ALICE\n#HASH\nbob = BOB\n");

    EXPECT_EQ(ksdb_cifs_service_import(h(), db()), 0);
    EXPECT_EQ(ksdb_cifs_service_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) _ksdb_cifs_service_username_map_import: Failed to insert "
                       "smb_username_map\n"));
    EXPECT_TRUE(logged("(error) _ksdb_cifs_service_username_map_import: unix_uname = alice, "
                       "smb_uname = ALICE, type = UNAME\n"));
    EXPECT_TRUE(logged("(error) ksdb_cifs_service_import: Failed to import smb username map! "
                       "rc = 3\n"));
    EXPECT_TRUE(logged("(error) ksdb_cifs_service_import() ==> 3 ("));

    sql().exec("DELETE FROM smb_username_map");
    sql().exec("UPDATE service_cifs SET workgroup=NULL");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SERVICE), 0);
    const std::vector<std::string> first = dump();
    // The second run changes the workgroup before the map fails: all of it
    // is rolled back.
    put("/etc/samba/smb.conf", "[global]\n workgroup = OTHER\n");
    EXPECT_EQ(ksdb_import(h(), db(), KSDB_CAT_CIFS_SERVICE), KSDB_E_DB);
    EXPECT_EQ(dump(), first);
    EXPECT_EQ(sql().scalar("SELECT workgroup FROM service_cifs"), "OFFICE");
}

TEST_F(ServiceTest, SambaExportStandAlone) {
    standalone_cifs();
    sql().exec("INSERT INTO smb_username_map (unix_uname,smb_uname,type) VALUES('alice','ALICE',"
               "'UNAME'),('bob','DOMAIN\\bob','HASH')");
    put("/etc/samba/winbind.conf", "# used by svf\n");
    ASSERT_EQ(ksdb_cifs_service_export(h(), db()), 0);
    EXPECT_EQ(get("/etc/samba/smb.conf"), kSmbStandalone);
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf.admin"), kAdminHome);
    EXPECT_FALSE(exists(at("/etc/samba/winbind.conf")));
    EXPECT_EQ(get("/etc/quillfold/samba/usermap.conf"),
              "#UNAME\n"
              "alice = ALICE\n"
              "#HASH\n"
              "bob = DOMAIN\\bob\n");
    EXPECT_TRUE(logged("(debug) _ksdb_service_export() ==> 0 ("));
    EXPECT_TRUE(logged("(debug) ksdb_cifs_service_export() ==> 0 ("));

    // The map reads back to the same rows.
    sql().exec("DELETE FROM smb_username_map");
    put("/etc/samba/smb.conf", "");
    ASSERT_EQ(ksdb_cifs_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT unix_uname,smb_uname,type FROM smb_username_map ORDER BY id"),
              (std::vector<std::string>{"alice|ALICE|UNAME", "bob|DOMAIN\\bob|HASH"}));
}

TEST_F(ServiceTest, SambaExportInADomainReadsBackToTheSameSettings) {
    domain_cifs();
    sql().exec("INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','c','1234-abcd',4096),"
               "('2','usbdisk',NULL,4096),('3','d','5678-ef01',4096)");
    ASSERT_EQ(ksdb_cifs_service_export(h(), db()), 0);
    EXPECT_EQ(get("/etc/samba/smb.conf"), kSmbDomain);
    EXPECT_EQ(get("/etc/samba/winbind.conf"), "# used by svf\n");
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf.admin"),
              kAdminHome +
                  "[c]\n"
                  "  path = \"/c\"\n"
                  "  admin users = \"admin\",\"Administrator\"\n"
                  "  comment = \"Volume 'c'\"\n"
                  "  writeable = 1\n"
                  "  valid users = \"admin\",\"Administrator\"\n"
                  "[d]\n"
                  "  path = \"/d\"\n"
                  "  admin users = \"admin\",\"Administrator\"\n"
                  "  comment = \"Volume 'd'\"\n"
                  "  writeable = 1\n"
                  "  valid users = \"admin\",\"Administrator\"\n");
    EXPECT_EQ(get("/etc/quillfold/samba/usermap.conf"), "");

    const std::string columns =
        "SELECT security,workgroup,realm,orgunit,restrict_ou,no_sync_ads,oplocks,map_to_guest,"
        "password_server,allow_trusted_domains,domain_admin_user,hostname_lookups,idmap_backend "
        "FROM service_cifs";
    const std::vector<std::string> stored = sql().rows(columns);
    sql().exec("UPDATE service_cifs SET security=NULL,workgroup=NULL,realm=NULL,orgunit=NULL,"
               "restrict_ou=NULL,no_sync_ads=NULL,oplocks=NULL,map_to_guest=NULL,"
               "password_server=NULL,allow_trusted_domains=NULL,domain_admin_user=NULL,"
               "hostname_lookups=NULL,idmap_backend=NULL");
    ASSERT_EQ(ksdb_cifs_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows(columns), stored);

    // Back to stand-alone: the marker goes.
    sql().exec("UPDATE service_cifs SET security='user'");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_CIFS_SERVICE), 0);
    EXPECT_FALSE(exists(at("/etc/samba/winbind.conf")));
}

TEST_F(ServiceTest, DosCodePageFollowsTheLanguage) {
    sql().exec("INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user')");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"ja", "CP932"},   {"ko", "CP949"},   {"zh-tw", "CP950"}, {"zh-cn", "CP936"},
        {"cz", "CP1250"},  {"hu", "CP1250"},  {"pl", "CP1250"},   {"ru", "CP1251"},
        {"fr", "CP1252"},  {"en", "CP1252"},
    };
    for (const auto &[lang, page] : cases) {
        sql().exec("DELETE FROM service_misc; INSERT INTO service_misc (key,val) VALUES('LANGUAGE','" +
                   lang + "')");
        ASSERT_EQ(ksdb_cifs_service_export(h(), db()), 0);
        EXPECT_NE(get("/etc/samba/smb.conf").find("\n dos charset = " + page + "\n"),
                  std::string::npos)
            << lang;
    }
}

TEST_F(ServiceTest, SambaExportFailuresKeepTheFilesNotYetWritten) {
    standalone_cifs();
    put("/etc/samba/smb.conf", "old smb.conf\n");
    put("/etc/quillfold/samba/usermap.conf", "#UNAME\nold = OLD\n");
    // Two CIFS rows: a template field gives two values.
    sql().exec("INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user')");
    EXPECT_EQ(ksdb_cifs_service_export(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Query Error for embed sql: "));
    EXPECT_TRUE(logged("(error) _ksdb_service_export() ==> 3 ("));
    EXPECT_TRUE(logged("(error) ksdb_cifs_service_export() ==> 3 ("));
    EXPECT_EQ(get("/etc/samba/smb.conf"), "old smb.conf\n");
    EXPECT_FALSE(exists(at("/etc/quillfold/samba/Shares.conf.admin")));
    EXPECT_TRUE(tmp_files().empty());

    // A failing user-name map: the files of the earlier steps are in place.
    sql().exec("DELETE FROM service_cifs WHERE rowid=2");
    sql().exec("DROP TABLE smb_username_map");
    EXPECT_EQ(ksdb_cifs_service_export(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) _ksdb_cifs_service_username_map_export: Query Error for SELECT "
                       "smb_username_map\n"));
    EXPECT_TRUE(logged("(error) ksdb_cifs_service_export: Failed to export smb username map! "
                       "rc = 3\n"));
    EXPECT_EQ(get("/etc/samba/smb.conf"), kSmbStandalone);
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf.admin"), kAdminHome);
    EXPECT_EQ(get("/etc/quillfold/samba/usermap.conf"), "#UNAME\nold = OLD\n");
    EXPECT_TRUE(tmp_files().empty());

    // Without the volume table the administrative shares cannot be listed.
    sql().exec("DROP TABLE _volume");
    EXPECT_EQ(ksdb_cifs_service_export(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Query Error for SELECT _volume\n"));
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf.admin"), kAdminHome);
    EXPECT_TRUE(tmp_files().empty());
}

// ---- NFS ---------------------------------------------------------------------------

TEST_F(ServiceTest, NfsExport) {
    ASSERT_EQ(ksdb_nfs_service_export(h(), db()), 0);  // no row: nothing written
    EXPECT_FALSE(exists(at("/etc/default/nfs-kernel-server")));
    EXPECT_FALSE(exists(at("/etc/idmapd.conf")));

    sql().exec("INSERT INTO service_nfs (enabled,threads,nfsv4,domain) VALUES(1,8,0,NULL)");
    ASSERT_EQ(ksdb_nfs_service_export(h(), db()), 0);
    EXPECT_EQ(get("/etc/default/nfs-kernel-server"),
              "RPCNFSDCOUNT=8\n"
              "RPCNFSDARGS= --no-nfs-version 4\n"
              "RPCMOUNTDOPTS=--manage-gids --no-nfs-version 4\n"
              "NEED_SVCGSSD=\n"
              "RPCSVCGSSDOPTS=\n");
    const std::string idmapd_plain =
        "[General]\n"
        "Verbosity = 0\n"
        "Pipefs-Directory = /var/lib/nfs/rpc_pipefs\n"
        "[Mapping]\n"
        "Nobody-User = guest\n"
        "Nobody-Group = guest\n";
    EXPECT_EQ(get("/etc/idmapd.conf"), idmapd_plain);
    struct stat st;
    ASSERT_EQ(stat(at("/etc/idmapd.conf").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);

    sql().exec("UPDATE service_nfs SET threads=NULL,nfsv4=1,domain='example.com'");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_NFS_SERVICE), 0);
    EXPECT_EQ(get("/etc/default/nfs-kernel-server"),
              "RPCNFSDCOUNT=1\n"
              "RPCNFSDARGS=\n"
              "RPCMOUNTDOPTS=--manage-gids\n"
              "NEED_SVCGSSD=\n"
              "RPCSVCGSSDOPTS=\n");
    EXPECT_EQ(get("/etc/idmapd.conf"),
              "[General]\n"
              "Verbosity = 0\n"
              "Pipefs-Directory = /var/lib/nfs/rpc_pipefs\n"
              "Domain = example.com\n"
              "[Mapping]\n"
              "Nobody-User = guest\n"
              "Nobody-Group = guest\n");

    sql().exec("UPDATE service_nfs SET threads=0,nfsv4=NULL,domain='',enabled=0");
    ASSERT_EQ(ksdb_nfs_service_export(h(), db()), 0);
    EXPECT_EQ(get("/etc/default/nfs-kernel-server"),
              "RPCNFSDCOUNT=0\n"
              "RPCNFSDARGS= --no-nfs-version 4\n"
              "RPCMOUNTDOPTS=--manage-gids --no-nfs-version 4\n"
              "NEED_SVCGSSD=\n"
              "RPCSVCGSSDOPTS=\n");
    EXPECT_EQ(get("/etc/idmapd.conf"), idmapd_plain);

    sql().exec("DROP TABLE service_nfs");
    EXPECT_EQ(ksdb_nfs_service_export(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) ksdb_nfs_service_export() ==> 3 ("));
    EXPECT_EQ(get("/etc/idmapd.conf"), idmapd_plain);
}

// ---- FTP ----------------------------------------------------------------------------

TEST_F(ServiceTest, FtpExportWithEverySwitchOff) {
    sql().exec("INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user')");
    sql().exec("INSERT INTO service_ftp (enabled) VALUES(1)");
    ASSERT_EQ(ksdb_ftp_service_export(h(), db()), 0);
    EXPECT_EQ(get("/etc/proftpd/proftpd.conf"), kProftpdPlain);
    EXPECT_EQ(get("/etc/quillfold/proftpd/ftps.conf"), ftps_conf("off"));
    EXPECT_TRUE(logged("(debug) ksdb_ftp_service_export() ==> 0 ("));
}

TEST_F(ServiceTest, FtpExportWithEverySwitchOnReadsBack) {
    sql().exec("INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'ads')");
    full_ftp();
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_FTP_SERVICE), 0);
    EXPECT_EQ(get("/etc/proftpd/proftpd.conf"), kProftpdFull);
    EXPECT_EQ(get("/etc/quillfold/proftpd/ftps.conf"), ftps_conf("on"));

    // What the files say comes back from them; the host-name switch and the
    // home folders are kept by other settings and stay at their defaults.
    put("/etc/hostname", "nas1\n");
    sql().exec("DELETE FROM service_ftp");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_FTP_SERVICE), 0);
    EXPECT_EQ(sql().rows("SELECT enabled,port,auth_mode,passive_range_min,passive_range_max,"
                         "enable_masquerade,masquerade,upload_resume,user_home_directory,ftps,"
                         "server_transfer_log,max_upload_rate,max_download_rate,force_ftps,"
                         "use_reverse_dns FROM service_ftp"),
              (std::vector<std::string>{
                  "0|2121|anonymous|40000|40100|1|192.0.2.10|1|0|1|1|100|512|1|0"}));
}

TEST_F(ServiceTest, FtpImportDirectives) {
    sql().exec("INSERT INTO service_ftp (enabled,upload_resume,ftps) VALUES(1,1,0)");
    put("/etc/hostname", "nas1\nsecond line\n");
    put("/etc/proftpd/proftpd.conf",
        "# header\n"
        "TransferRate RETR 512\n"
        "#TransferRate STOR 99\n"
        "TransferRate APPE 7\n"
        "AllowStoreRestart On\n"
        "  PassivePorts   40000 40100  \n"
        "ServerLog /var/log/other.log\n"
        "Include /etc/quillfold/proftpd/User.conf\n"
        "Include /etc/quillfold/proftpd/ftps.conf\n"
        "<Directory /*>\n"
        "Port\t2121\n"
        "</Directory>\n");
    put("/etc/quillfold/proftpd/ftps.conf",
        "<IfModule mod_tls.c>\n"
        "  # TLSRequired off\n"
        "  TLSRequired \"on\"\n"
        "</IfModule>\n");
    ASSERT_EQ(ksdb_ftp_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT enabled,max_download_rate,max_upload_rate,upload_resume,"
                         "passive_range_min,passive_range_max,server_transfer_log,auth_mode,ftps,"
                         "port,enable_masquerade,masquerade,force_ftps FROM service_ftp"),
              (std::vector<std::string>{"1|512|0|0|40000|40100|0|user|1|2121|0|nas1|1"}));
    EXPECT_TRUE(logged("(debug) ksdb_ftp_service_import() ==> 0 ("));
}

TEST_F(ServiceTest, FtpImportWithoutHostnameOrConfiguration) {
    sql().exec("INSERT INTO service_ftp (enabled,enable_masquerade,masquerade) VALUES(1,1,'x')");
    ASSERT_EQ(ksdb_ftp_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT enabled,enable_masquerade,masquerade FROM service_ftp"),
              (std::vector<std::string>{"1|0|localhost"}));
    EXPECT_TRUE(logged("(error) No config file (/etc/proftpd/proftpd.conf) found. Disable ftp.\n"));

    // A MasqueradeAddress line sets both again; no ftps.conf is fine.
    put("/etc/proftpd/proftpd.conf", "MasqueradeAddress 192.0.2.1\n");
    ASSERT_EQ(ksdb_ftp_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT enabled,enable_masquerade,masquerade FROM service_ftp"),
              (std::vector<std::string>{"1|1|192.0.2.1"}));
    EXPECT_TRUE(logged("(error) Cannot load /etc/quillfold/proftpd/ftps.conf\n"));

    // No row yet: the import makes one.
    sql().exec("DELETE FROM service_ftp");
    ASSERT_EQ(ksdb_ftp_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT enabled,port,enable_masquerade,masquerade FROM service_ftp"),
              (std::vector<std::string>{"0|21|1|192.0.2.1"}));
}

TEST_F(ServiceTest, FtpFailures) {
    put("/etc/quillfold/proftpd/ftps.conf", "  TLSRequired on\n");
    sql().exec("DROP TABLE service_ftp");
    sql().exec("CREATE TABLE service_ftp (enabled INT, masquerade TEXT, enable_masquerade INT)");
    put("/etc/proftpd/proftpd.conf", "AllowStoreRestart on\n");
    EXPECT_EQ(ksdb_ftp_service_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Failed to UPDATE service_ftp\n"));

    put("/etc/proftpd/proftpd.conf", "# nothing\n");
    EXPECT_EQ(ksdb_ftp_service_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Failed to UPDATE service_daap\n"));

    // The export: a template query fails, the old file stays.
    put("/etc/proftpd/proftpd.conf", "old\n");
    EXPECT_EQ(ksdb_ftp_service_export(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Query Error for embed sql: SELECT CASE WHEN upload_resume=1 "));
    EXPECT_EQ(get("/etc/proftpd/proftpd.conf"), "old\n");
    EXPECT_TRUE(tmp_files().empty());
}

TEST_F(ServiceTest, FtpHomeQueryFailureAbandonsTheFile) {
    // A table with every column the template reads but no home-folder column.
    sql().exec("INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user')");
    sql().exec("DROP TABLE service_ftp");
    sql().exec("CREATE TABLE service_ftp (upload_resume INT, use_reverse_dns INT, "
               "server_transfer_log INT, port INT, masquerade TEXT, enable_masquerade INT, "
               "passive_range_min INT, passive_range_max INT, auth_mode TEXT, "
               "max_upload_rate INT, max_download_rate INT, ftps INT, force_ftps INT)");
    put("/etc/proftpd/proftpd.conf", "old\n");
    EXPECT_EQ(ksdb_ftp_service_export(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Failed DB Query for service_ftp\n"));
    EXPECT_EQ(get("/etc/proftpd/proftpd.conf"), "old\n");
    EXPECT_FALSE(exists(at("/etc/quillfold/proftpd/ftps.conf")));
    EXPECT_TRUE(tmp_files().empty());
}

// ---- DAAP and replication ----------------------------------------------------------------

TEST_F(ServiceTest, DaapImportUpdatesAnExistingRowOnly) {
    put("/etc/forked-daapd.conf",
        "general {\n"
        "\tuid = \"daapd\"\n"
        "}\n"
        "library {\n"
        "\tname = \"Music on nas1\"\n"
        " #\tname = \"commented out\"\n"
        "# password = \"old\"\n"
        "\tpassword = s3cret\n"
        "\tdirectories = { \"/c/media/Music\" }\n"
        "}\n");
    ASSERT_EQ(ksdb_daap_service_import(h(), db()), 0);
    EXPECT_EQ(sql().scalar("SELECT COUNT(*) FROM service_daap"), "0");

    sql().exec("INSERT INTO service_daap (enabled) VALUES(1)");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ALL_SERVICE), 0);
    // The value is not trimmed unless it is quoted.
    EXPECT_EQ(sql().rows("SELECT enabled,sharename,password,directory FROM service_daap"),
              (std::vector<std::string>{"1|Music on nas1| s3cret|/c/media/Music"}));

    sql().exec("DROP TABLE service_daap");
    EXPECT_EQ(ksdb_daap_service_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Failed to UPDATE service_daap\n"));
}

TEST_F(ServiceTest, ReplicationOwner) {
    const std::string path = "/opt/replication/etc/registration.conf";
    put(path,
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<registration>\n"
        "  <owner>alice@example.com</owner>\n"
        "  <key>abc</key>\n"
        "</registration>\n");
    ASSERT_EQ(ksdb_replicate_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT enabled,owner,priv_data FROM service_replicate"),
              (std::vector<std::string>{"0|alice@example.com|<NULL>"}));

    sql().exec("UPDATE service_replicate SET enabled=1,priv_data='x'");
    put(path, "<registration><owner>bob</registration>");  // not well-formed
    ASSERT_EQ(ksdb_replicate_service_import(h(), db()), 0);
    EXPECT_EQ(sql().rows("SELECT enabled,owner,priv_data FROM service_replicate"),
              (std::vector<std::string>{"1|<NULL>|<NULL>"}));

    put(path, "<registration><key/><owner>carol</owner></registration>");  // owner not first
    sql().exec("UPDATE service_replicate SET owner='old'");
    ASSERT_EQ(ksdb_replicate_service_import(h(), db()), 0);
    EXPECT_EQ(sql().scalar("SELECT owner IS NULL FROM service_replicate"), "1");

    std::filesystem::remove(at(path));
    sql().exec("UPDATE service_replicate SET owner='old'");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_REPLICATE_SERVICE), 0);
    EXPECT_EQ(sql().rows("SELECT enabled,owner FROM service_replicate"),
              (std::vector<std::string>{"1|<NULL>"}));

    // Export and import keep the owner, characters XML escapes included.
    sql().exec("UPDATE service_replicate SET owner='Ann & Bob <ann@example.com>'");
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_REPLICATE_SERVICE), 0);
    EXPECT_EQ(get(path),
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<registration><owner>Ann &amp; Bob &lt;ann@example.com&gt;</owner></registration>\n");
    sql().exec("UPDATE service_replicate SET owner=NULL");
    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_REPLICATE_SERVICE), 0);
    EXPECT_EQ(sql().scalar("SELECT owner FROM service_replicate"), "Ann & Bob <ann@example.com>");

    // No owner: no owner element, and the import reads no owner.
    sql().exec("UPDATE service_replicate SET owner=NULL");
    ASSERT_EQ(ksdb_replicate_service_export(h(), db()), 0);
    EXPECT_EQ(get(path), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<registration></registration>\n");
    ASSERT_EQ(ksdb_replicate_service_import(h(), db()), 0);
    EXPECT_EQ(sql().scalar("SELECT owner IS NULL FROM service_replicate"), "1");

    sql().exec("DROP TABLE service_replicate");
    EXPECT_EQ(ksdb_replicate_service_import(h(), db()), KSDB_E_DB);
    EXPECT_TRUE(logged("(error) Failed to UPDATE service_replicate\n"));
}

// ---- the exported queries ------------------------------------------------------------------

TEST_F(ServiceTest, SshEnabledQuery) {
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), 0);  // no row
    sql().exec("INSERT INTO service_ssh (enabled) VALUES(1)");
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), 1);
    sql().exec("UPDATE service_ssh SET enabled=0");
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), 0);
    sql().exec("DROP TABLE service_ssh");
    EXPECT_EQ(ksdb_is_service_ssh_enabled(h(), db()), -1);
    EXPECT_TRUE(logged("(error) ksdb_is_service_ssh_enabled: Error in query (SELECT "
                       "`service_ssh`)\n"));
}

// ---- the whole service category through the driver -----------------------------------------

TEST_F(ServiceTest, AllServiceImportAndExportOfASmallAppliance) {
    const std::string services =
        "USER_HOME_DIRECTORY=0\n"
        "USER_HOME_DIRECTORY_AFP=0\n"
        "USER_HOME_DIRECTORY_FTP=1\n"
        "USER_HOME_DIRECTORY_NFS=0\n"
        "USER_HOME_DIRECTORY_RECYCLE=1\n"
        "USER_HOME_DIRECTORY_RECYCLE_MAX_DAYS=30\n"
        "USER_HOME_DIRECTORY_RECYCLE_MAX_SIZE=1024\n"
        "DISALLOW_PASSOWRD_CHANGE=0\n"
        "SAMBA=1\n"
        "NETATALK=0\n"
        "PROFTPD=1\n"
        "RSYNC=0\n"
        "UPNP=0\n"
        "APPSTALL=0\n"
        "NFS=1\n"
        "NFS_THREADS=8\n"
        "NFS_V4=1\n"
        "NFS_DOMAIN=home.arpa\n"
        "HTTP_WEBSERVER_SHARE=\n"
        "HTTP_WEBSERVER_SHARE_USE_PASSWORD=0\n"
        "HTTPS_PORT=443\n"
        "HTTPS_SSL_KEY_HOST=nas1\n"
        "HTTP=1\n"
        "HTTP_ADMIN=1\n"
        "UPNPAV=0\n"
        "BRISKTIVOD=0\n"
        "AVAHI=1\n"
        "AVAHI_AFP=0\n"
        "AVAHI_QUILLFOLD=1\n"
        "AVAHI_PRINTER=0\n"
        "AVAHI_TIMEMACHINE=0\n"
        "SNMPD=0\n"
        "SNMP_ALLOW_HOST=default\n"
        "SNMP_COMMUNITY=public\n"
        "SNMP_TRAP_DESTINATION=\n"
        "SNMP_CONTACT=\n"
        "SNMP_LOCATION=server room\n"
        "SSH=1\n"
        "SSHPORT=22\n"
        "SSH_UI_ENABLE=1\n"
        "REMOTE_ACCESS_SSH=0\n"
        "REMOTE_ACCESS_SSH_PORT=22\n"
        "SSH_PASSWORD_AUTHENTICATION=1\n"
        "LANGUAGE=de\n"
        "UPS=usb\\ ups\n";
    put("/etc/default/services", services);
    put("/etc/samba/smb.conf", kSmbStandalone);
    put("/etc/quillfold/samba/usermap.conf", "#UNAME\nalice = ALICE\n");
    put("/etc/hostname", "nas1\n");
    std::string proftpd = replace_all(kProftpdPlain, "#Include /etc/quillfold/proftpd/ftps.conf",
                                      "Include /etc/quillfold/proftpd/ftps.conf");
    proftpd = replace_all(proftpd, "\nPort 21\n\n", "\nPort 21\nMasqueradeAddress 192.0.2.10\n");
    proftpd += "<Directory \"/var/ftp/home\">\n"
               "  HideFiles none\n"
               "  HideNoAccess on\n"
               "  <Limit WRITE READ>\n"
               "    Order deny,allow\n"
               "    Allow from all\n"
               "  </Limit>\n"
               "</Directory>\n";
    put("/etc/proftpd/proftpd.conf", proftpd);
    put("/etc/quillfold/proftpd/ftps.conf", ftps_conf("off"));
    put("/opt/replication/etc/registration.conf",
        "<registration><owner>alice@example.com</owner></registration>\n");
    // Kept by the announcement settings, which are not part of this category.
    sql().exec("INSERT INTO service_avahi VALUES(1,1,0,1,0,1,0)");

    ASSERT_EQ(ksdb_import(h(), db(), KSDB_CAT_ALL_SERVICE), 0);
    EXPECT_EQ(sql().scalar("SELECT owner FROM service_replicate"), "alice@example.com");
    EXPECT_EQ(sql().scalar("SELECT masquerade FROM service_ftp"), "192.0.2.10");

    for (const char *f : {"/etc/default/services", "/etc/samba/smb.conf",
                          "/etc/quillfold/samba/usermap.conf", "/etc/proftpd/proftpd.conf",
                          "/etc/quillfold/proftpd/ftps.conf"})
        std::filesystem::remove(at(f));
    ASSERT_EQ(ksdb_export(h(), db(), KSDB_CAT_ALL_SERVICE), 0);
    EXPECT_EQ(get("/etc/default/services"), services);
    EXPECT_EQ(get("/etc/samba/smb.conf"), kSmbStandalone);
    EXPECT_EQ(get("/etc/quillfold/samba/usermap.conf"), "#UNAME\nalice = ALICE\n");
    EXPECT_EQ(get("/etc/quillfold/samba/Shares.conf.admin"), kAdminHome);
    EXPECT_FALSE(exists(at("/etc/samba/winbind.conf")));
    EXPECT_EQ(get("/etc/proftpd/proftpd.conf"), proftpd);
    EXPECT_EQ(get("/etc/quillfold/proftpd/ftps.conf"), ftps_conf("off"));
    EXPECT_EQ(get("/etc/default/nfs-kernel-server"),
              "RPCNFSDCOUNT=8\n"
              "RPCNFSDARGS=\n"
              "RPCMOUNTDOPTS=--manage-gids\n"
              "NEED_SVCGSSD=\n"
              "RPCSVCGSSDOPTS=\n");
    EXPECT_EQ(get("/etc/idmapd.conf"),
              "[General]\n"
              "Verbosity = 0\n"
              "Pipefs-Directory = /var/lib/nfs/rpc_pipefs\n"
              "Domain = home.arpa\n"
              "[Mapping]\n"
              "Nobody-User = guest\n"
              "Nobody-Group = guest\n");
    EXPECT_TRUE(tmp_files().empty());
}

// ---- the daemons' own checkers --------------------------------------------------------------

class ServiceCheckerTest : public ServiceTest {
  protected:
    // A copy of the generated smb.conf whose live paths point below the
    // root, with the include files the appliance itself provides.
    std::string smb_copy() {
        put("/etc/quillfold/samba/smb.conf.defaults", "# appliance defaults\n server min protocol = SMB2\n");
        // testparm expands %a to UNKNOWN and %U to nothing.
        put("/etc/quillfold/samba/smb.conf.UNKNOWN", "# per client kind\n");
        put("/etc/quillfold/samba/smb.conf.overrides",
            "# local overrides\ninclude = " + at("/etc/quillfold/samba/Shares.conf.admin") + "\n");
        put("/etc/quillfold/samba/Shares.conf.", "# per user\n");
        put("/etc/quillfold/samba/addons/addons.conf", "# add-ons\n");
        put("/run/usb/samba/Shares.conf", "# USB disks\n");
        ksdb_export(h(), db(), KSDB_CAT_CIFS_SHARE);
        if (!exists(at("/etc/quillfold/samba/Shares.conf")))
            put("/etc/quillfold/samba/Shares.conf",
                "[data]\n path = /c/data\n writeable = 1\n valid users = alice\n");
        std::string text = get("/etc/samba/smb.conf");
        text = replace_all(text, " /etc/quillfold/", " " + root() + "/etc/quillfold/");
        text = replace_all(text, " /run/usb/", " " + root() + "/run/usb/");
        const std::string copy = at("/smb.check.conf");
        write_file(copy, text);
        return copy;
    }

    // Copies of the generated proftpd.conf and ftps.conf pointing below the
    // root, with the appliance's own include files and a throw-away
    // certificate.
    std::string proftpd_copy() {
        const std::string dir = at("/etc/quillfold/proftpd/");
        write_file(dir + "proftpd.conf.overrides", "# local overrides\n");
        write_file(dir + "User.conf", "<Limit LOGIN>\n  AllowAll\n</Limit>\n");
        write_file(dir + "Anonymous.conf",
                   "<Anonymous " + root() + ">\n  User guest\n  Group guest\n</Anonymous>\n");
        mkdirs(at("/etc/quillfold/apache"));
        const std::string key = at("/key.pem"), cert = at("/cert.pem");
        const std::string cmd = "openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=nas1 "
                                "-keyout '" + key + "' -out '" + cert + "' >/dev/null 2>&1";
        EXPECT_EQ(std::system(cmd.c_str()), 0);
        write_file(at("/etc/quillfold/apache/apache2.pem"), read_file(key) + read_file(cert));

        std::string ftps = get("/etc/quillfold/proftpd/ftps.conf");
        ftps = replace_all(ftps, " /etc/quillfold/", " " + root() + "/etc/quillfold/");
        write_file(at("/ftps.check.conf"), ftps);
        std::string text = get("/etc/proftpd/proftpd.conf");
        text = replace_all(text, "Include /etc/quillfold/proftpd/ftps.conf",
                           "Include " + at("/ftps.check.conf"));
        text = replace_all(text, "Include /etc/quillfold/", "Include " + root() + "/etc/quillfold/");
        const std::string copy = at("/proftpd.check.conf");
        write_file(copy, text);
        return copy;
    }
};

TEST_F(ServiceCheckerTest, SambaAcceptsTheGeneratedFileInBothModes) {
    if (!have_program("testparm")) GTEST_SKIP() << "testparm is not installed (scripts/setup-deps)";
    standalone_cifs();
    sql().exec("INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','c','1234-abcd',4096)");
    ASSERT_EQ(ksdb_cifs_service_export(h(), db()), 0);
    std::string out;
    std::string copy = smb_copy();
    EXPECT_EQ(run_checker("check-smb.sh", copy, &out), 0) << out;

    // A broken line makes the check fail.
    write_file(copy, read_file(copy) + " no such parameter = 1\n");
    EXPECT_NE(run_checker("check-smb.sh", copy, &out), 0) << out;

    sql().exec("DELETE FROM service_cifs; DELETE FROM service_misc");
    domain_cifs();
    // samba warns when a domain member names its password server: the
    // usual domain set-up leaves it empty ("*").
    sql().exec("UPDATE service_cifs SET password_server=NULL");
    ASSERT_EQ(ksdb_cifs_service_export(h(), db()), 0);
    ASSERT_NE(get("/etc/samba/smb.conf").find("\n password server = *\n"), std::string::npos);
    copy = smb_copy();
    EXPECT_EQ(run_checker("check-smb.sh", copy, &out), 0) << out;
    write_file(copy, replace_all(read_file(copy), " oplocks = 0\n", " oplocks = maybe\n"));
    EXPECT_NE(run_checker("check-smb.sh", copy, &out), 0) << out;
}

TEST_F(ServiceCheckerTest, ProftpdAcceptsTheGeneratedFiles) {
    if (!have_program("proftpd") || !have_program("openssl"))
        GTEST_SKIP() << "proftpd or openssl is not installed (scripts/setup-deps)";
    sql().exec("INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user')");
    sql().exec("INSERT INTO service_ftp (enabled) VALUES(1)");
    ASSERT_EQ(ksdb_ftp_service_export(h(), db()), 0);
    std::string out;
    std::string copy = proftpd_copy();
    EXPECT_EQ(run_checker("check-proftpd.sh", copy, &out), 0) << out;

    // Everything on: TLS included, anonymous access, home folders, domain.
    sql().exec("DELETE FROM service_ftp; UPDATE service_cifs SET security='ads'");
    full_ftp();
    ASSERT_EQ(ksdb_ftp_service_export(h(), db()), 0);
    copy = proftpd_copy();
    EXPECT_EQ(run_checker("check-proftpd.sh", copy, &out), 0) << out;

    write_file(copy, read_file(copy) + "NoSuchDirective on\n");
    EXPECT_NE(run_checker("check-proftpd.sh", copy, &out), 0) << out;
    // A broken line in the included TLS section fails too.
    copy = proftpd_copy();
    write_file(at("/ftps.check.conf"),
               replace_all(read_file(at("/ftps.check.conf")), "TLSVerifyClient off",
                           "TLSVerifyClient sometimes"));
    EXPECT_NE(run_checker("check-proftpd.sh", copy, &out), 0) << out;
}

}  // namespace
