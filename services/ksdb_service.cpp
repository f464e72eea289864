// Service settings: the one-row service tables, the shared settings file
// /etc/default/services, the samba, FTP, DAAP and replication settings read
// back from the daemons' files, and the samba, NFS and FTP configuration
// files written from the tables.
#define KSDB_MODULE "ksdb_service"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"
#include "util/ksdb_sql_helpers.h"
#include "util/ksdb_file_utils.h"
#include "util/ksdb_string_utils.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

extern "C" {
const char *const TABLE_SMB_USERNAME_MAP = "smb_username_map";
const char *const TABLE_SMB_USERNAME_MAP_TYPE_HASH = "HASH";
const char *const TABLE_SMB_USERNAME_MAP_TYPE_UNAME = "UNAME";
}

namespace ksdb {

namespace {

// The keys of /etc/default/services.  DISALLOW_PASSOWRD_CHANGE is spelled
// the way the other programs that share the file write it.  The AVAHI keys
// are owned by the announcement settings: an import only records them, and
// an export writes what service_avahi holds.
const ksdb_service_setting_map_entry default_services_map[] = {
    {"USER_HOME_DIRECTORY", "service_cifs", "user_home_directory", 1, 0},
    {"USER_HOME_DIRECTORY_AFP", "service_afp", "user_home_directory", 1, 0},
    {"USER_HOME_DIRECTORY_FTP", "service_ftp", "user_home_directory", 1, 0},
    {"USER_HOME_DIRECTORY_NFS", "service_nfs", "user_home_directory", 1, 0},
    {"USER_HOME_DIRECTORY_RECYCLE", "service_cifs", "user_home_directory_recycle", 1, 0},
    {"USER_HOME_DIRECTORY_RECYCLE_MAX_DAYS", "service_cifs", "user_home_directory_recycle_max_days", 1, 0},
    {"USER_HOME_DIRECTORY_RECYCLE_MAX_SIZE", "service_cifs", "user_home_directory_recycle_max_size", 1, 0},
    {"DISALLOW_PASSOWRD_CHANGE", "account_default", "disallow_password_change", 1, 0},
    {"SAMBA", "service_cifs", "enabled", 1, 0},
    {"NETATALK", "service_afp", "enabled", 1, 0},
    {"PROFTPD", "service_ftp", "enabled", 1, 0},
    {"RSYNC", "service_rsync", "enabled", 1, 0},
    {"UPNP", "service_upnpd", "enabled", 1, 0},
    {"APPSTALL", "service_smartnetwork", "enabled", 1, 0},
    {"NFS", "service_nfs", "enabled", 1, 0},
    {"NFS_THREADS", "service_nfs", "threads", 1, 0},
    {"NFS_V4", "service_nfs", "nfsv4", 1, 0},
    {"NFS_DOMAIN", "service_nfs", "domain", 0, 0},
    {"HTTP_WEBSERVER_SHARE", "service_http", "share_name", 0, 0},
    {"HTTP_WEBSERVER_SHARE_USE_PASSWORD", "service_http", "use_password", 1, 0},
    {"HTTPS_PORT", "service_https", "port", 1, 0},
    {"HTTPS_SSL_KEY_HOST", "service_https", "ssl_key_host", 0, 0},
    {"HTTP", "service_http", "enabled", 1, 0},
    {"HTTP_ADMIN", "service_http", "http_admin", 1, 0},
    {"UPNPAV", "service_dlna", "enabled", 1, 0},
    {"BRISKTIVOD", "service_dlna", "enable_tivo_archiver", 1, 0},
    {"AVAHI", "service_avahi", "enabled", 1, 1},
    {"AVAHI_AFP", "service_avahi", "afp", 1, 1},
    {"AVAHI_QUILLFOLD", "service_avahi", "quillfold", 1, 1},
    {"AVAHI_PRINTER", "service_avahi", "printer", 1, 1},
    {"AVAHI_TIMEMACHINE", "service_avahi", "timemachine", 1, 1},
    {"SNMPD", "service_snmp", "enabled", 1, 0},
    {"SNMP_ALLOW_HOST", "service_snmp", "allow_host", 0, 0},
    {"SNMP_COMMUNITY", "service_snmp", "community", 0, 0},
    {"SNMP_TRAP_DESTINATION", "service_snmp", "trap_destination", 0, 0},
    {"SNMP_CONTACT", "service_snmp", "contact", 0, 0},
    {"SNMP_LOCATION", "service_snmp", "location", 0, 0},
    {"SSH", "service_ssh", "enabled", 1, 0},
    {"SSHPORT", "service_ssh", "port", 1, 0},
    {"SSH_UI_ENABLE", "service_ssh", "ui_enabled", 1, 0},
    {"REMOTE_ACCESS_SSH", "service_ssh", "remote_enabled", 1, 0},
    {"REMOTE_ACCESS_SSH_PORT", "service_ssh", "remote_port", 1, 0},
    {"SSH_PASSWORD_AUTHENTICATION", "service_ssh", "password_authentication", 1, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

// The samba [global] parameters read back from smb.conf.
const ksdb_service_setting_map_entry smb_global_map[] = {
    {"security", "service_cifs", "security", 0, 0},
    {"workgroup", "service_cifs", "workgroup", 0, 0},
    {"realm", "service_cifs", "realm", 0, 0},
    {"orgunit", "service_cifs", "orgunit", 0, 0},
    {"restrict_ou", "service_cifs", "restrict_ou", 0, 0},
    {"no_sync_ads", "service_cifs", "no_sync_ads", 0, 0},
    {"oplocks", "service_cifs", "oplocks", 1, 0},
    {"map to guest", "service_cifs", "map_to_guest", 0, 0},
    {"password server", "service_cifs", "password_server", 0, 0},
    {"allow trusted domains", "service_cifs", "allow_trusted_domains", 1, 0},
    {"domain_admin_user", "service_cifs", "domain_admin_user", 0, 0},
    {"hostname lookups", "service_cifs", "hostname_lookups", 1, 0},
    {"idmap config * : backend", "service_cifs", "idmap_backend", 0, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

// The FTP daemon's directives that need no handling of their own.
const ksdb_service_setting_map_entry proftpd_port_map[] = {
    {"Port", "service_ftp", "port", 1, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

constexpr char kDefaultServices[] = "/etc/default/services";
constexpr char kSmbConf[] = "/etc/samba/smb.conf";
constexpr char kSharesAdmin[] = "/etc/quillfold/samba/Shares.conf.admin";
constexpr char kWinbindConf[] = "/etc/samba/winbind.conf";
constexpr char kUsermapConf[] = "/etc/quillfold/samba/usermap.conf";
constexpr char kNfsDefaults[] = "/etc/default/nfs-kernel-server";
constexpr char kIdmapdConf[] = "/etc/idmapd.conf";
constexpr char kProftpdConf[] = "/etc/proftpd/proftpd.conf";
constexpr char kFtpsConf[] = "/etc/quillfold/proftpd/ftps.conf";
constexpr char kDaapConf[] = "/etc/forked-daapd.conf";
constexpr char kRegistrationConf[] = "/opt/replication/etc/registration.conf";

// ---- templates -----------------------------------------------------------------

// smb.conf.  The domain-only parameters carry a prefix that the first
// query of their line yields: "#dashboard:" on a stand-alone appliance
// (samba reads a comment, the samba import still finds the value) and a
// blank in a domain.  orgunit, restrict_ou, no_sync_ads and
// domain_admin_user are this system's own and always stay behind
// "#dashboard:".
const char *const kSambaTemplate[] = {
    "# This file is auto-generated.  Do not modify!\n",
    "\n",
    "[global]\n",
    " include = /etc/quillfold/samba/smb.conf.defaults\n",
    " host msdfs = yes\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}} allow trusted domains = {SQL{SELECT allow_trusted_domains FROM service_cifs LIMIT 1}}\n",
    " dos charset = {SQL{SELECT CASE WHEN S.val='ja' THEN 'CP932' WHEN S.val='ko' THEN 'CP949' WHEN S.val='zh-tw' THEN 'CP950' WHEN S.val LIKE 'zh%%' THEN 'CP936' WHEN S.val='cz' THEN 'CP1250' WHEN S.val='da' THEN 'CP1252' WHEN S.val='nl' THEN 'CP1252' WHEN S.val='fi' THEN 'CP1252' WHEN S.val='fr' THEN 'CP1252' WHEN S.val='de' THEN 'CP1252' WHEN S.val='hu' THEN 'CP1250' WHEN S.val='it' THEN 'CP1252' WHEN S.val='pl' THEN 'CP1250' WHEN S.val='es' THEN 'CP1252' WHEN S.val='ru' THEN 'CP1251' ELSE 'CP1252' END FROM service_misc S WHERE key='LANGUAGE'}}\n",
    " guest account = guest\n",
    " hostname lookups = {SQL{SELECT hostname_lookups FROM service_cifs}}\n",
    " invalid users = root\n",
    " load printers = 0\n",
    " log level = 0 auth:2\n",
    " map to guest = {SQL{SELECT CASE WHEN map_to_guest='' THEN 'bad user' ELSE IFNULL(map_to_guest,'bad user') END FROM service_cifs}}\n",
    " max log size = 512\n",
    " name resolve order = lmhosts host wins bcast\n",
    " oplocks = {SQL{SELECT oplocks FROM service_cifs}}\n",
    " passdb backend = tdbsam\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}#dashboard:orgunit = {SQL{SELECT orgunit FROM service_cifs}}\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}#dashboard:restrict_ou = {SQL{SELECT restrict_ou FROM service_cifs}}\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}#dashboard:no_sync_ads = {SQL{SELECT no_sync_ads FROM service_cifs}}\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}idmap config * : backend = {SQL{SELECT idmap_backend FROM service_cifs}}\n",
    " idmap config * : range = 32768 - 2147483647\n",
    " passwd program = \"/usr/bin/passwd %u\"\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}password server = {SQL{SELECT CASE WHEN IFNULL(password_server,'')='' THEN '*' ELSE password_server END FROM service_cifs}}\n",
    " realm = {SQL{SELECT realm FROM service_cifs}}\n",
    " security = {SQL{SELECT security FROM service_cifs}}\n",
    " server string = \"%h\"\n",
    " template homedir = {SQL{SELECT '/home'||CASE WHEN CIFS.security='user' THEN '' ELSE '/%%D' END||'/%%U' FROM service_cifs CIFS}}\n",
    " unix charset = UTF-8\n",
    " unix password sync = 1\n",
    " veto files = /Network Trash Folder/Temporary Items/\n",
    " workgroup = {SQL{SELECT workgroup FROM service_cifs}}\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}{SQL{SELECT CASE WHEN join_ads_failed=1 THEN 'client signing = mandatory' ELSE '' END FROM service_cifs}}\n",
    "#dashboard:domain_admin_user = {SQL{SELECT domain_admin_user FROM service_cifs}}\n",
    " username map = /etc/quillfold/samba/usermap.conf\n",
    "\n",
    "include = /etc/quillfold/samba/smb.conf.%a\n",
    "include = /etc/quillfold/samba/smb.conf.overrides\n",
    "include = /etc/quillfold/samba/Shares.conf\n",
    "include = /etc/quillfold/samba/Shares.conf.%U\n",
    "include = /etc/quillfold/samba/addons/addons.conf\n",
    "include = /run/usb/samba/Shares.conf\n",
    "\n",
    "{SQL{SELECT CASE WHEN user_home_directory<>0 THEN '' ELSE '#' END FROM service_cifs}}[homes]\n",
    "{SQL{SELECT CASE WHEN user_home_directory<>0 THEN '' ELSE '#' END FROM service_cifs}} browseable = 0\n",
    "{SQL{SELECT CASE WHEN user_home_directory<>0 THEN '' ELSE '#' END FROM service_cifs}} writeable = 1\n",
    "{SQL{SELECT CASE WHEN user_home_directory<>0 THEN '' ELSE '#' END FROM service_cifs}} public = 0\n",
    "{SQL{SELECT CASE WHEN user_home_directory<>0 THEN '' ELSE '#' END FROM service_cifs}} valid users = %D\\%S\n",
    "\n",
    nullptr,
};

// proftpd.conf.  The overrides file is included first and last on
// purpose: what it sets first can be relied on by the rest, what it sets
// last wins.
const char *const kFtpTemplate[] = {
    "# Do not edit.\n",
    "Include /etc/quillfold/proftpd/proftpd.conf.overrides\n",
    "ServerName \"Ulmaris Kestrava\"\n",
    "ServerType standalone\n",
    "DeferWelcome off\n",
    "MultilineRFC2228 on\n",
    "DefaultServer on\n",
    "ShowSymlinks on\n",
    "AllowOverwrite on\n",
    "AllowStoreRestart {SQL{SELECT CASE WHEN upload_resume=1 THEN 'on' ELSE 'off' END FROM service_ftp}}\n",
    "UseReverseDNS {SQL{SELECT CASE WHEN use_reverse_dns=1 THEN 'on' ELSE 'off' END FROM service_ftp}}\n",
    "IdentLookups off\n",
    "TimesGMT off\n",
    "WtmpLog off\n",
    "ServerLog {SQL{SELECT CASE WHEN server_transfer_log=1 THEN '/var/log/proftpd.log' ELSE 'NONE' END FROM service_ftp}}\n",
    "SystemLog /var/log/proftpd.log\n",
    "TransferLog {SQL{SELECT CASE WHEN server_transfer_log=1 THEN '/var/log/proftpd.log' ELSE 'NONE' END FROM service_ftp}}\n",
    "BanLog /var/log/proftpd.log\n",
    "MaxLoginAttempts 2\n",
    "BanEngine on\n",
    "BanTable /ftp_ban.tbl\n",
    "BanOnEvent MaxLoginAttempts 5/00:10:00 00:15:00\n",
    "TimeoutNoTransfer 600\n",
    "TimeoutStalled 600\n",
    "TimeoutIdle 1200\n",
    "DisplayLogin welcome.msg\n",
    "DisplayChdir .message\n",
    "DenyFilter \\*.*/\n",
    "PersistentPasswd {SQL{SELECT CASE WHEN security='user' THEN 'on' ELSE 'off' END FROM service_cifs}}\n",
    "Port {SQL{SELECT port FROM service_ftp}}\n",
    "{SQL{SELECT 'MasqueradeAddress '||masquerade FROM service_ftp WHERE enable_masquerade!=0}}\n",
    "DynMasqRefresh 7200\n",
    "PassivePorts {SQL{SELECT passive_range_min||' '||passive_range_max FROM service_ftp}}\n",
    "AllowForeignAddress off\n",
    "MaxInstances 30\n",
    "User guest\n",
    "Group guest\n",
    "RequireValidShell {SQL{SELECT CASE WHEN auth_mode='anonymous' THEN 'on' ELSE 'off' END FROM service_ftp}}\n",
    "DefaultChdir /\n",
    "{SQL{SELECT CASE WHEN security='ads' THEN 'ListOptions -n' ELSE '' END FROM service_cifs}}\n",
    "<Directory /*>\n",
    "Umask 022 022\n",
    "AllowOverwrite on\n",
    "</Directory>\n",
    "CapabilitiesEngine off\n",
    "{SQL{SELECT CASE WHEN max_upload_rate<>0 THEN '' ELSE '#' END FROM service_ftp}}TransferRate STOR {SQL{SELECT max_upload_rate FROM service_ftp}}\n",
    "{SQL{SELECT CASE WHEN max_download_rate<>0 THEN '' ELSE '#' END FROM service_ftp}}TransferRate RETR {SQL{SELECT max_download_rate FROM service_ftp}}\n",
    "{SQL{SELECT CASE WHEN ftps=1 THEN '' ELSE '#' END FROM service_ftp}}Include /etc/quillfold/proftpd/ftps.conf\n",
    "Include /etc/quillfold/proftpd/{SQL{SELECT CASE WHEN auth_mode='anonymous' THEN 'Anonymous' ELSE 'User' END FROM service_ftp}}.conf\n",
    "Include /etc/quillfold/proftpd/proftpd.conf.overrides\n",
    nullptr,
};

// Appended to proftpd.conf when the FTP service shares the home folders.
constexpr char kFtpHomeBlock[] =
    "<Directory \"/var/ftp/home\">\n"
    "  HideFiles none\n"
    "  HideNoAccess on\n"
    "  <Limit WRITE READ>\n"
    "    Order deny,allow\n"
    "    Allow from all\n"
    "  </Limit>\n"
    "</Directory>\n";

// ftps.conf: written whatever the ftps switch says; proftpd.conf includes
// it only while the switch is on.
const char *const kFtpsTemplate[] = {
    "<IfModule mod_tls.c>\n",
    "  TLSEngine on\n",
    "  TLSLog /var/log/proftpd.log\n",
    "  TLSProtocol TLSv1 TLSv1.1 TLSv1.2\n",
    "\n",
    "  # Are clients required to use FTP over TLS when talking to this server?\n",
    "  TLSRequired {SQL{SELECT CASE WHEN force_ftps='1' THEN 'on' ELSE 'off' END FROM service_ftp}}\n",
    "\n",
    "  # Server's certificate\n",
    "  TLSRSACertificateFile /etc/quillfold/apache/apache2.pem\n",
    "\n",
    "  # Authenticate clients that want to use FTP over TLS?\n",
    "  TLSVerifyClient off\n",
    "\n",
    "  TLSOptions NoSessionReuseRequired\n",
    "</IfModule>\n",
    nullptr,
};

// ---- host-name-lookup switch -----------------------------------------------------

// True when some host entry of the protocol's access lists names a host
// rather than an address or a network.
int _ksdb_host_acl_has_hostname(ksdb_handle *h, sqlite3 *db, const char *protocol) {
    char sql[256];
    std::snprintf(sql, sizeof sql,
                  "select name, share_id from host, host_acl where host.id = host_acl.host_id "
                  "and host_acl.proto = '%s'",
                  protocol);
    SqlTable t;
    if (ksdb_sql_get_table(h, db, nullptr, KSDB_TAG, t.table_out(), t.nrow_out(), t.ncol_out(),
                           sql) != SQLITE_OK) {
        KSDB_ERR(h, "Failed to get table for %s.\n", protocol);
        return 0;
    }
    for (int r = 0; r < t.rows(); ++r) {
        const char *name = t.at(r, 0);
        // A host name: letters, digits and "_-." with a letter in every
        // label, so "192.168.1.10" or "10.0.0.0/8" are not names.
        if (name && ksdb_check_domain_name(name) == 0) {
            KSDB_DEBUG(h, "Found host name %s in host acl. protocol is %s.\n", name, protocol);
            return 1;
        }
    }
    return 0;
}

int _ksdb_update_table_column_int(ksdb_handle *h, sqlite3 *db, const char *table,
                                  const char *column, int value) {
    if (ksdb_sql_exec_mprintf(h, db, nullptr, KSDB_TAG, "UPDATE %s SET %s=%d", table, column,
                              value) != SQLITE_OK) {
        KSDB_ERR(h, "Failed to UPDATE table %s, column %s, value %d!\n", table, column, value);
        return KSDB_E_DB;
    }
    return 0;
}

// ---- shared helpers ------------------------------------------------------------

constexpr char kUsermapImport[] = "_ksdb_cifs_service_username_map_import";
constexpr char kUsermapExport[] = "_ksdb_cifs_service_username_map_export";

// A line as every importer here sees it: leading blanks skipped (the line
// is already cut at its newline).
char *line_start(char *line) {
    skip_space(&line);
    return line;
}

// Splits `line` at the first "=": *key is the text before it, *value the
// text after it, or the empty text when the line has none.  False when the
// line has no "=".
bool split_at_equals(char *line, char **key, char **value) {
    *value = line + std::strlen(line);  // the line's own terminator: an empty text
    char *cursor = line;
    return split(&cursor, "=", key, value, static_cast<char **>(nullptr)) == 2;
}

// Splits `line` at the first blank or tab: the line itself becomes the
// first word and the rest (possibly empty) is returned.
char *split_at_blank(char *line) {
    char *rest = line;
    skip_to_chars(&rest, " \t");
    if (*rest) *rest++ = '\0';
    return rest;
}

// The text between the first two double quotes of `s` when it has one,
// else `s` as it stands (an unclosed quote runs to the end).
char *quoted_or_self(char *s) {
    char *open = std::strchr(s, '"');
    if (!open) return s;
    char *close = std::strchr(open + 1, '"');
    if (close) *close = '\0';
    return open + 1;
}

// ---- /etc/default/services ---------------------------------------------------------

// Both import categories read the file the same way; they differ only in
// how a missing file is judged.
int import_default_services(ksdb_handle *h, sqlite3 *db, uint32_t missing_level,
                            int missing_status) {
    std::optional<std::string> text = load_file(h, kDefaultServices);
    if (!text) {
        KSDB_LOG(h, missing_level, "Cannot load %s\n", kDefaultServices);
        return missing_status;
    }
    int rc = 0;
    for_each_line(text->data(), [&](char *raw) {
        char *line = line_start(raw);
        if (*line == '#') return true;
        char *key, *value;
        split_at_equals(line, &key, &value);
        // The file is written for the shell: a backslash makes the next
        // character literal.
        unescape_for_shell(value);
        rc = _ksdb_apply_setting(h, db, default_services_map, 1, key, value);
        return rc == 0;
    });
    return rc;
}

// Writes /etc/default/services from the tables.  The mapped values go out
// as they are stored (the programs that read them expect them so); only the
// free keys carried in service_misc are shell-escaped.
int export_default_services(ksdb_handle *h, sqlite3 *db) {
    ManagedFile out(h, kDefaultServices);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s\n", kDefaultServices);
        return KSDB_E_FILE;
    }
    for (const ksdb_service_setting_map_entry *e = default_services_map; e->key; ++e) {
        std::optional<std::string> value;
        if (sql_scalar(h, db, nullptr, KSDB_TAG, &value, "SELECT %s FROM %s LIMIT 1",
                       e->column_name, e->table_name) != 0) {
            KSDB_ERR(h, "Query Error for SELECT %s.%s\n", e->table_name, e->column_name);
            return KSDB_E_DB;
        }
        out.printf("%s=%s\n", e->key, value ? value->c_str() : "");
    }
    SqlTable misc;
    if (misc.query(h, db, KSDB_TAG,
                   "SELECT key,val FROM service_misc WHERE table_name IS NULL AND column_name IS "
                   "NULL") != SQLITE_OK) {
        KSDB_ERR(h, "Query Error for SELECT service_misc\n");
        return KSDB_E_DB;
    }
    for (int r = 0; r < misc.rows(); ++r) {
        if (!misc.at(r, 0)) continue;
        // escape_for_shell's escaper, without a copy in the caller's pool.
        out.printf("%s=%s\n", misc.at(r, 0),
                   misc.at(r, 1) ? escape_shell(misc.at(r, 1)).c_str() : "");
    }
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kDefaultServices);
        return KSDB_E_FILE;
    }
    return 0;
}

// ---- samba -----------------------------------------------------------------------

// Reads the user-name map: records of a "#TYPE" line followed by a
// "unix = smb" line.  The table is not emptied first, so a name already
// mapped makes the insert fail.
int _ksdb_cifs_service_username_map_import(ksdb_handle *h, sqlite3 *db, char *text) {
    int rc = 0;
    std::optional<std::string> type;  // the type line just read
    for_each_line(text, [&](char *raw) {
        char *line = line_start(raw);
        if (type) {
            const std::string record_type = std::move(*type);
            type.reset();
            char *unix_name, *smb_name;
            if (!split_at_equals(line, &unix_name, &smb_name)) return true;
            unix_name = ksdb_trim_blanks(unix_name);
            smb_name = ksdb_trim_blanks(smb_name);
            SqlStr sql = sql_printf("INSERT INTO %s (unix_uname, smb_uname, type) VALUES(%Q,%Q,%Q)",
                                    TABLE_SMB_USERNAME_MAP, unix_name, smb_name,
                                    record_type.c_str());
            if (!sql || ksdb_sql_exec(h, db, nullptr, KSDB_TAG, sql.get()) != SQLITE_OK) {
                KSDB_ERR(h, "%s: Failed to insert %s\n", kUsermapImport, TABLE_SMB_USERNAME_MAP);
                KSDB_ERR(h, "%s: unix_uname = %s, smb_uname = %s, type = %s\n", kUsermapImport,
                         unix_name, smb_name, record_type.c_str());
                rc = KSDB_E_DB;
                return false;
            }
            return true;
        }
        if (line[0] == '#' && line[1] != '\0') {
            if (ksdb_valid_smb_username_map_type(line + 1))
                type = line + 1;
            else
                KSDB_ERR(h, "%s: Unknown type %s!\n", kUsermapImport, line + 1);
        }
        return true;
    });
    return rc;
}

int _ksdb_cifs_service_username_map_export(ksdb_handle *h, sqlite3 *db) {
    ManagedFile out(h, kUsermapConf);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s\n", kUsermapConf);
        return KSDB_E_FILE;
    }
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT unix_uname, smb_uname, type FROM %s",
                TABLE_SMB_USERNAME_MAP) != SQLITE_OK) {
        KSDB_ERR(h, "%s: Query Error for SELECT %s\n", kUsermapExport, TABLE_SMB_USERNAME_MAP);
        return KSDB_E_DB;
    }
    for (int r = 0; r < t.rows(); ++r) {
        out.printf("#%s\n", t.str(r, 2));
        out.printf("%s = %s\n", t.str(r, 0), t.str(r, 1));
    }
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kUsermapConf);
        return KSDB_E_FILE;
    }
    return 0;
}

int import_samba(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> conf = load_file(h, kSmbConf);
    if (!conf) {
        KSDB_ERR(h, "Cannot load %s\n", kSmbConf);
        return 0;
    }
    int rc = 0;
    for_each_line(conf->data(), [&](char *raw) {
        char *line = line_start(raw);
        // Section headers are skipped, not tracked.
        if (*line == '[') return true;
        // The domain-only parameters of a stand-alone appliance sit behind
        // this prefix; their values are still read.
        if (std::strncmp(line, "#dashboard:", 11) == 0) line += 11;
        if (*line == '#') return true;
        char *key, *value;
        split_at_equals(line, &key, &value);
        rc = _ksdb_apply_setting(h, db, smb_global_map, 0, ksdb_trim_blanks(key),
                                 ksdb_trim_blanks(value));
        return rc == 0;
    });
    if (rc) return rc;

    std::optional<std::string> map = load_file(h, kUsermapConf);
    if (!map) {
        KSDB_ERR(h, "Cannot load %s\n", kUsermapConf);
        return 0;
    }
    if (int r = _ksdb_cifs_service_username_map_import(h, db, map->data())) {
        KSDB_ERR(h, "%s: Failed to import smb username map! rc = %d\n", "ksdb_cifs_service_import",
                 r);
        return r;
    }
    return 0;
}

// The administrative shares: the home folders and every volume that has a
// uuid (a real, mounted file system).
int export_admin_shares(ksdb_handle *h, sqlite3 *db) {
    ManagedFile out(h, kSharesAdmin);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s\n", kSharesAdmin);
        return KSDB_E_FILE;
    }
    out.write("[home]\n"
              "  path = \"/home\"\n"
              "  admin users = \"admin\",\"Administrator\"\n"
              "  comment = \"Private user folders\"\n"
              "  writeable = 1\n"
              "  valid users = \"admin\",\"Administrator\"\n");
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT V.lv_name FROM _volume V WHERE V.uuid IS NOT NULL") !=
        SQLITE_OK) {
        KSDB_ERR(h, "Query Error for SELECT _volume\n");
        return KSDB_E_DB;
    }
    for (int r = 0; r < t.rows(); ++r) {
        const char *v = t.at(r, 0);
        if (!v) continue;
        out.printf("[%s]\n"
                   "  path = \"/%s\"\n"
                   "  admin users = \"admin\",\"Administrator\"\n"
                   "  comment = \"Volume '%s'\"\n"
                   "  writeable = 1\n"
                   "  valid users = \"admin\",\"Administrator\"\n",
                   v, v, v);
    }
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kSharesAdmin);
        return KSDB_E_FILE;
    }
    return 0;
}

// winbind.conf marks domain mode for the start-up scripts: present exactly
// when samba's security is something other than "user".
int export_winbind_marker(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> security;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &security, "SELECT security FROM service_cifs") != 0)
        return KSDB_E_DB;
    if (security && *security != "user") {
        const std::string path = effective_path(h, kWinbindConf);
        if (ksdb_file_put_one_line(path.c_str(), "# used by svf") != 0) {
            KSDB_ERR(h, "Cannot write %s\n", path.c_str());
            return KSDB_E_FILE;
        }
    } else {
        ksdb_file_unlink(h, kWinbindConf);
    }
    return 0;
}

int export_samba(ksdb_handle *h, sqlite3 *db) {
    int rc = logged(h, KSDB_TAG, "_ksdb_service_export", [&] {
        return write_template_file(h, db, kSmbConf, kSambaTemplate);
    });
    if (rc) return rc;
    if ((rc = export_admin_shares(h, db))) return rc;
    if ((rc = export_winbind_marker(h, db))) return rc;
    if ((rc = _ksdb_cifs_service_username_map_export(h, db))) {
        KSDB_ERR(h, "%s: Failed to export smb username map! rc = %d\n", "ksdb_cifs_service_export",
                 rc);
        return rc;
    }
    return 0;
}

// ---- NFS ------------------------------------------------------------------------

int export_nfs(ksdb_handle *h, sqlite3 *db) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT S.enabled,S.threads,S.nfsv4,S.domain FROM service_nfs S") !=
        SQLITE_OK)
        return KSDB_E_DB;
    if (t.rows() == 0) return 0;
    // `enabled` is read with the rest but changes neither file.
    const char *threads = t.at(0, 1);
    const char *nfsv4 = t.at(0, 2);
    const char *domain = t.at(0, 3);
    const char *no_v4 = nfsv4 && std::strtol(nfsv4, nullptr, 10) != 0 ? "" : " --no-nfs-version 4";

    ManagedFile server(h, kNfsDefaults);
    if (!server.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s\n", kNfsDefaults);
        return KSDB_E_FILE;
    }
    server.printf("RPCNFSDCOUNT=%d\n", threads ? static_cast<int>(std::strtol(threads, nullptr, 10)) : 1);
    server.printf("RPCNFSDARGS=%s\n", no_v4);
    server.printf("RPCMOUNTDOPTS=--manage-gids%s\n", no_v4);
    server.write("NEED_SVCGSSD=\n"
                 "RPCSVCGSSDOPTS=\n");
    if (server.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kNfsDefaults);
        return KSDB_E_FILE;
    }

    ManagedFile idmapd(h, kIdmapdConf);
    if (!idmapd.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s\n", kIdmapdConf);
        return KSDB_E_FILE;
    }
    idmapd.write("[General]\n"
                 "Verbosity = 0\n"
                 "Pipefs-Directory = /var/lib/nfs/rpc_pipefs\n");
    if (domain && *domain) idmapd.printf("Domain = %s\n", domain);
    idmapd.write("[Mapping]\n"
                 "Nobody-User = guest\n"
                 "Nobody-Group = guest\n");
    if (idmapd.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kIdmapdConf);
        return KSDB_E_FILE;
    }
    return 0;
}

// ---- FTP --------------------------------------------------------------------------

constexpr char kFtpUpdateFailed[] = "Failed to UPDATE service_ftp\n";

int import_proftpd_line(ksdb_handle *h, sqlite3 *db, char *line) {
    char *arg = ksdb_trim_blanks(split_at_blank(line));
    const char *directive = ksdb_trim_blanks(line);
    if (std::strcmp(directive, "PassivePorts") == 0) {
        int low = 0, high = 0;
        // A line without both ports says nothing usable: left alone.
        if (std::sscanf(arg, "%32d %32d", &low, &high) != 2) return 0;
        return exec_or_fail(h, db, kFtpUpdateFailed,
                            "UPDATE service_ftp SET passive_range_min=%d,passive_range_max=%d",
                            low, high);
    }
    if (std::strcmp(directive, "ServerLog") == 0 || std::strcmp(directive, "TransferLog") == 0) {
        // Only ever switched on here: a log going elsewhere does not say
        // the transfer log is off.
        if (std::strcmp(arg, "/var/log/proftpd.log") != 0) return 0;
        return exec_or_fail(h, db, kFtpUpdateFailed,
                            "UPDATE service_ftp SET server_transfer_log=1");
    }
    if (std::strcmp(directive, "Include") == 0) {
        if (std::strcmp(arg, "/etc/quillfold/proftpd/Anonymous.conf") == 0)
            return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET auth_mode=%Q",
                                "anonymous");
        if (std::strcmp(arg, "/etc/quillfold/proftpd/User.conf") == 0)
            return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET auth_mode=%Q",
                                "user");
        if (std::strcmp(arg, "/etc/quillfold/proftpd/ftps.conf") == 0)
            return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET ftps=1");
        return 0;
    }
    if (std::strcmp(directive, "AllowStoreRestart") == 0)
        return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET upload_resume=%d",
                            std::strcmp(arg, "on") == 0 ? 1 : 0);
    if (std::strcmp(directive, "MasqueradeAddress") == 0)
        return exec_or_fail(h, db, kFtpUpdateFailed,
                            "UPDATE service_ftp SET enable_masquerade=1,masquerade=%Q", arg);
    if (std::strcmp(directive, "TransferRate") == 0) {
        char direction[5] = "";
        int rate = 0;
        if (std::sscanf(arg, "%4s %32d", direction, &rate) != 2) return 0;
        if (std::strcmp(direction, "STOR") == 0)
            return exec_or_fail(h, db, kFtpUpdateFailed,
                                "UPDATE service_ftp SET max_upload_rate=%d", rate);
        if (std::strcmp(direction, "RETR") == 0)
            return exec_or_fail(h, db, kFtpUpdateFailed,
                                "UPDATE service_ftp SET max_download_rate=%d", rate);
        return 0;
    }
    return _ksdb_apply_setting(h, db, proftpd_port_map, 0, directive, arg);
}

int import_ftp(ksdb_handle *h, sqlite3 *db) {
    // The masquerade address starts as this machine's name, switched off;
    // a MasqueradeAddress line of the file sets both again.
    const char *hostname = ksdb_get_hostname(h);
    if (!hostname) hostname = "localhost";
    if (int rc = update_else_insert(
            h, db, sql_printf("UPDATE service_ftp SET enable_masquerade=0,masquerade=%Q", hostname),
            sql_printf("INSERT INTO service_ftp (enable_masquerade,masquerade) VALUES(0,%Q)",
                       hostname),
            "Failed to update service_ftp\n", "Failed to insert service_ftp\n"))
        return rc;

    std::optional<std::string> conf = load_file(h, kProftpdConf);
    if (!conf) {
        // The words are kept although `enabled` is left as it is.
        KSDB_ERR(h, "No config file (%s) found. Disable ftp.\n", kProftpdConf);
        return 0;
    }
    int rc = 0;
    for_each_line(conf->data(), [&](char *raw) {
        char *line = line_start(raw);
        if (*line == '<' || *line == '>' || *line == '#') return true;
        rc = import_proftpd_line(h, db, line);
        return rc == 0;
    });
    if (rc) return rc;

    std::optional<std::string> ftps = load_file(h, kFtpsConf);
    if (!ftps) {
        KSDB_ERR(h, "Cannot load %s\n", kFtpsConf);
        return 0;
    }
    for_each_line(ftps->data(), [&](char *raw) {
        if (std::strncmp(raw, "  #", 3) == 0) return true;
        char *line = line_start(raw);
        if (*line == '<' || *line == '#') return true;
        char *arg = quoted_or_self(split_at_blank(line));
        if (std::strcmp(ksdb_trim_blanks(line), "TLSRequired") != 0) return true;
        // This message has always named service_daap; log readers match
        // it as it is.
        rc = exec_or_fail(h, db, "Failed to UPDATE service_daap\n",
                          "UPDATE service_ftp SET force_ftps=%d",
                          std::strcmp(arg, "on") == 0 ? 1 : 0);
        return rc == 0;
    });
    return rc;
}

int export_ftp(ksdb_handle *h, sqlite3 *db) {
    int rc = write_template_file(h, db, kProftpdConf, kFtpTemplate, [&](ManagedFile &out) {
        int32_t home = 0;
        if (ksdb_sql_get_int32_mprintf(h, db, nullptr, KSDB_TAG, &home, nullptr,
                                       "SELECT user_home_directory FROM service_ftp") != 0) {
            KSDB_ERR(h, "Failed DB Query for service_ftp\n");
            return static_cast<int>(KSDB_E_DB);
        }
        if (home) out.write(kFtpHomeBlock);
        return 0;
    });
    if (rc) return rc;
    return write_template_file(h, db, kFtpsConf, kFtpsTemplate);
}

// ---- DAAP -------------------------------------------------------------------------

int import_daap(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> conf = load_file(h, kDaapConf);
    if (!conf) {
        KSDB_ERR(h, "Cannot load %s\n", kDaapConf);
        return 0;
    }
    int rc = 0;
    for_each_line(conf->data(), [&](char *raw) {
        if (std::strncmp(raw, " #", 2) == 0) return true;
        char *line = line_start(raw);
        if (*line == '#') return true;
        char *key, *value;
        split_at_equals(line, &key, &value);
        key = ksdb_trim_blanks(key);
        value = quoted_or_self(value);
        const char *column = std::strcmp(key, "name") == 0          ? "sharename"
                             : std::strcmp(key, "password") == 0    ? "password"
                             : std::strcmp(key, "directories") == 0 ? "directory"
                                                                    : nullptr;
        if (!column) return true;
        // Updates only: the DAAP row is made by the media settings.
        rc = exec_or_fail(h, db, "Failed to UPDATE service_daap\n",
                          "UPDATE service_daap SET %s=%Q", column, value);
        return rc == 0;
    });
    return rc;
}

// ---- replication ----------------------------------------------------------------------

struct XmlDocFree {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};

// The owner named by the registration file: the text of <owner> when it is
// the first child of the root <registration>.
std::optional<std::string> registration_owner(ksdb_handle *h) {
    const std::string path = effective_path(h, kRegistrationConf);
    if (access(path.c_str(), R_OK) != 0) return std::nullopt;
    // Blank text between elements is dropped (so a pretty-printed file still
    // has <owner> first); parse errors are not printed to the caller's
    // standard error.
    std::unique_ptr<xmlDoc, XmlDocFree> doc(
        xmlReadFile(path.c_str(), "utf-8",
                    XML_PARSE_NOBLANKS | XML_PARSE_NONET | XML_PARSE_NOERROR |
                        XML_PARSE_NOWARNING));
    if (!doc) return std::nullopt;
    xmlNode *root = xmlDocGetRootElement(doc.get());
    if (!root || !xmlStrEqual(root->name, BAD_CAST "registration")) return std::nullopt;
    xmlNode *first = root->children;
    if (!first || first->type != XML_ELEMENT_NODE || !xmlStrEqual(first->name, BAD_CAST "owner") ||
        !first->children)
        return std::nullopt;
    xmlChar *text = xmlNodeGetContent(first->children);
    if (!text) return std::nullopt;
    std::string owner(reinterpret_cast<const char *>(text));
    xmlFree(text);
    return owner;
}

int import_replicate(ksdb_handle *h, sqlite3 *db) {
    // A missing or unreadable file clears the owner.
    const std::optional<std::string> owner = registration_owner(h);
    const char *o = owner ? owner->c_str() : nullptr;
    return update_else_insert(
        h, db, sql_printf("UPDATE service_replicate set owner=%Q,priv_data=%Q", o, nullptr),
        sql_printf("INSERT INTO service_replicate (enabled,owner,priv_data) VALUES(0,%Q,%Q)", o,
                   nullptr),
        "Failed to UPDATE service_replicate\n", "Failed to UPDATE service_replicate\n");
}

// The registration file written back from service_replicate: the inverse of
// its import, so that an export followed by an import keeps the owner.  The
// owner is the first child of the root (written without blank text, so
// readers that keep blanks see it first too); with no owner (NULL or empty)
// the root is empty.
int export_replicate(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> owner;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &owner, "SELECT owner FROM service_replicate") != 0) {
        KSDB_ERR(h, "Query Error for SELECT service_replicate\n");
        return KSDB_E_DB;
    }
    ManagedFile out(h, kRegistrationConf);
    if (!out.ok()) {
        KSDB_ERR(h, "Cannot open temporary file %s\n", kRegistrationConf);
        return KSDB_E_FILE;
    }
    out.write("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<registration>");
    if (owner && !owner->empty()) out.printf("<owner>%s</owner>", escape_xml(*owner).c_str());
    out.write("</registration>\n");
    if (out.commit() != 0) {
        KSDB_ERR(h, "Cannot move file to %s\n", kRegistrationConf);
        return KSDB_E_FILE;
    }
    return 0;
}

}  // namespace

}  // namespace ksdb

// ---- entry points -----------------------------------------------------------------

int ksdb_default_service_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_default_service_import", [&] {
        return ksdb::import_default_services(h, db, KSDB_LOG_INFO, 0);
    });
}

int ksdb_service_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_service_import", [&] {
        return ksdb::import_default_services(h, db, KSDB_LOG_ERROR, KSDB_E_FILE);
    });
}

int ksdb_default_service_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_default_service_export",
                        [&] { return ksdb::export_default_services(h, db); });
}

// The SERVICE category's exporter.  The service switches (SAMBA, NETATALK,
// PROFTPD, NFS, SSH ...) live in /etc/default/services, so switching
// services means writing that file, exactly as the DEFAULT_SERVICE export
// writes it.
int ksdb_service_switch_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_service_switch_export",
                        [&] { return ksdb::export_default_services(h, db); });
}

int ksdb_cifs_service_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_cifs_service_import",
                        [&] { return ksdb::import_samba(h, db); });
}

int ksdb_cifs_service_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_cifs_service_export",
                        [&] { return ksdb::export_samba(h, db); });
}

int ksdb_nfs_service_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_nfs_service_export",
                        [&] { return ksdb::export_nfs(h, db); });
}

int ksdb_ftp_service_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_ftp_service_import",
                        [&] { return ksdb::import_ftp(h, db); });
}

int ksdb_ftp_service_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_ftp_service_export",
                        [&] { return ksdb::export_ftp(h, db); });
}

int ksdb_daap_service_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_daap_service_import",
                        [&] { return ksdb::import_daap(h, db); });
}

int ksdb_replicate_service_import(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_replicate_service_import",
                        [&] { return ksdb::import_replicate(h, db); });
}

int ksdb_replicate_service_export(ksdb_handle *h, sqlite3 *db) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_replicate_service_export",
                        [&] { return ksdb::export_replicate(h, db); });
}

extern "C" {

int ksdb_valid_smb_username_map_type(const char *type) {
    if (!type) return 0;
    return std::strcmp(type, TABLE_SMB_USERNAME_MAP_TYPE_UNAME) == 0 ||
           std::strcmp(type, TABLE_SMB_USERNAME_MAP_TYPE_HASH) == 0;
}

int ksdb_is_service_ssh_enabled(ksdb_handle *h, sqlite3 *db) {
    int32_t enabled = 0;
    if (ksdb_sql_get_int32_mprintf(h, db, nullptr, KSDB_TAG, &enabled, nullptr,
                                   "SELECT enabled FROM `service_ssh`") != 0) {
        KSDB_ERR(h, "%s: Error in query (SELECT `service_ssh`)\n", "ksdb_is_service_ssh_enabled");
        return -1;
    }
    return enabled;
}

int ksdb_service_update_setting_by_share(ksdb_handle *h, sqlite3 *db, const char *protocol) {
    if (!protocol) return 0;
    const char *table, *column, *name;
    if (std::strcmp(protocol, "cifs") == 0) {
        table = "service_cifs";
        column = "hostname_lookups";
        name = "_ksdb_service_update_setting_by_share_cifs";
    } else if (std::strcmp(protocol, "ftp") == 0) {
        table = "service_ftp";
        column = "use_reverse_dns";
        name = "_ksdb_service_update_setting_by_share_ftp";
    } else {
        return 0;
    }
    int r = ksdb::_ksdb_host_acl_has_hostname(h, db, protocol);
    KSDB_DEBUG(h, "%s: protocol %s, r = %d.\n", name, protocol, r);
    if (ksdb::_ksdb_update_table_column_int(h, db, table, column, r) != 0) {
        KSDB_ERR(h, "Failed to call _ksdb_update_table_column_int!\n");
        return KSDB_E_DB;
    }
    KSDB_DEBUG(h, "%s: set %s to %d\n", name, column, r);
    return 0;
}

}  // extern "C"
