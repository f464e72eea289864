// The FTP daemon's service files: proftpd.conf from its template (with the
// home-folder block) and the FTP-over-TLS section ftps.conf; and the FTP
// settings read back from them and from the host name.
#define KSDB_MODULE "ksdb_service_ftp"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace ksdb::service {
namespace {

constexpr char kProftpdConf[] = "/etc/proftpd/proftpd.conf";
constexpr char kFtpsConf[] = "/etc/quillfold/proftpd/ftps.conf";
constexpr char kFtpUpdateFailed[] = "Failed to UPDATE service_ftp\n";

// A value of a directive line: one word (a blank would add an argument, a
// line break a directive), nothing that opens a section or a comment.
const ValueRule kFtpWord{"a word of an FTP directive", " \t[];#%\"'`$\\<>", 0};

// proftpd.conf.  The overrides file is included first and last on
// purpose: what it sets first can be relied on by the rest, what it sets
// last wins.  PersistentPasswd reads "off" while samba has no settings row
// yet, and an enabled masquerade without an address gives an empty line
// (the daemon refuses "MasqueradeAddress" alone).
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
    "PersistentPasswd {SQL{SELECT CASE WHEN security='user' THEN 'on' ELSE 'off' END FROM (SELECT 1) LEFT JOIN service_cifs}}\n",
    "Port {SQL{SELECT port FROM service_ftp}}\n",
    "{SQL{SELECT 'MasqueradeAddress '||masquerade FROM service_ftp WHERE enable_masquerade!=0 AND masquerade<>''}}\n",
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

int export_ftp(ksdb_handle *h, sqlite3 *db) {
    int rows = 0;
    if (int rc = row_count(h, db, "service_ftp", &rows)) return rc;
    // The masquerade address is written only while it is switched on.
    if (int rc = guard_rows(h, db, "service_ftp", "rowid",
                            {{"port"},
                             {"passive_range_min"},
                             {"passive_range_max"},
                             {"max_upload_rate"},
                             {"max_download_rate"},
                             {"masquerade", "CASE WHEN enable_masquerade!=0 THEN masquerade END"}},
                            kFtpWord))
        return rc;
    if (rows == 0) {
        KSDB_INFO(h, "service_ftp has no row: FTP files left as they are\n");
        return 0;
    }
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

// ---- reading ----------------------------------------------------------------------------

int import_proftpd_line(ksdb_handle *h, sqlite3 *db, std::string_view line) {
    std::string_view rest;
    const std::string directive(trim_blanks(split_first(line, " \t", &rest)));
    const std::string arg(trim_blanks(rest));
    if (directive == "PassivePorts") {
        int low = 0, high = 0;
        // A line without both ports says nothing usable: left alone.
        if (std::sscanf(arg.c_str(), "%32d %32d", &low, &high) != 2) return 0;
        return exec_or_fail(h, db, kFtpUpdateFailed,
                            "UPDATE service_ftp SET passive_range_min=%d,passive_range_max=%d",
                            low, high);
    }
    if (directive == "ServerLog" || directive == "TransferLog") {
        // Only ever switched on here: a log going elsewhere does not say
        // the transfer log is off.
        if (arg != "/var/log/proftpd.log") return 0;
        return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET server_transfer_log=1");
    }
    if (directive == "Include") {
        if (arg == "/etc/quillfold/proftpd/Anonymous.conf")
            return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET auth_mode=%Q",
                                "anonymous");
        if (arg == "/etc/quillfold/proftpd/User.conf")
            return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET auth_mode=%Q",
                                "user");
        if (arg == kFtpsConf)
            return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET ftps=1");
        return 0;
    }
    if (directive == "AllowStoreRestart")
        return exec_or_fail(h, db, kFtpUpdateFailed, "UPDATE service_ftp SET upload_resume=%d",
                            arg == "on" ? 1 : 0);
    if (directive == "MasqueradeAddress")
        return exec_or_fail(h, db, kFtpUpdateFailed,
                            "UPDATE service_ftp SET enable_masquerade=1,masquerade=%Q", arg.c_str());
    if (directive == "TransferRate") {
        char direction[5] = "";
        int rate = 0;
        if (std::sscanf(arg.c_str(), "%4s %32d", direction, &rate) != 2) return 0;
        const std::string_view d(direction);
        if (d == "STOR")
            return exec_or_fail(h, db, kFtpUpdateFailed,
                                "UPDATE service_ftp SET max_upload_rate=%d", rate);
        if (d == "RETR")
            return exec_or_fail(h, db, kFtpUpdateFailed,
                                "UPDATE service_ftp SET max_download_rate=%d", rate);
        return 0;
    }
    return _ksdb_apply_setting(h, db, proftpd_port_map, 0, directive.c_str(), arg.c_str());
}

int import_ftp(ksdb_handle *h, sqlite3 *db) {
    // The masquerade address starts as this machine's name, switched off;
    // a MasqueradeAddress line of the file sets both again.
    std::string hostname;
    if (int rc = read_hostname(h, &hostname)) return rc;
    if (int rc = update_else_insert(
            h, db,
            sql_printf("UPDATE service_ftp SET enable_masquerade=0,masquerade=%Q", hostname.c_str()),
            sql_printf("INSERT INTO service_ftp (enable_masquerade,masquerade) VALUES(0,%Q)",
                       hostname.c_str()),
            "Failed to update service_ftp\n", "Failed to insert service_ftp\n"))
        return rc;

    ConfFile conf(h, kProftpdConf);
    if (conf.missing()) {
        // The words are kept although `enabled` is left as it is.
        KSDB_ERR(h, "No config file (%s) found. Disable ftp.\n", kProftpdConf);
        return 0;
    }
    if (!conf.ok()) return cannot_load(h, conf, 0);
    int rc = 0;
    conf.lines([&](char *raw) {
        const std::string_view line = skip_blanks(raw);
        if (line.starts_with('<') || line.starts_with('>') || line.starts_with('#')) return true;
        rc = import_proftpd_line(h, db, line);
        return rc == 0;
    });
    if (rc) return rc;

    ConfFile ftps(h, kFtpsConf);
    if (!ftps.ok()) return cannot_load(h, ftps, 0);
    ftps.lines([&](char *raw) {
        if (std::string_view(raw).starts_with("  #")) return true;
        const std::string_view line = skip_blanks(raw);
        if (line.starts_with('<') || line.starts_with('#')) return true;
        std::string_view rest;
        if (trim_blanks(split_first(line, " \t", &rest)) != "TLSRequired") return true;
        // This message has always named service_daap; log readers match
        // it as it is.
        rc = exec_or_fail(h, db, "Failed to UPDATE service_daap\n",
                          "UPDATE service_ftp SET force_ftps=%d",
                          quoted_or_self(rest) == "on" ? 1 : 0);
        return rc == 0;
    });
    return rc;
}

}  // namespace
}  // namespace ksdb::service

KSDB_STEP(ksdb_ftp_service_import) { return ksdb::service::import_ftp(h, db); }

KSDB_STEP(ksdb_ftp_service_export) { return ksdb::service::export_ftp(h, db); }
