// Samba's service files: smb.conf from its template, the administrative
// shares of Shares.conf.admin, the domain-mode marker winbind.conf and the
// user-name map usermap.conf; and the [global] settings and the map read
// back from smb.conf and usermap.conf.
#define KSDB_MODULE "ksdb_service_samba"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

#include <optional>
#include <string>

namespace ksdb::service {
namespace {

constexpr char kSmbConf[] = "/etc/samba/smb.conf";
constexpr char kSharesAdmin[] = "/etc/quillfold/samba/Shares.conf.admin";
constexpr char kWinbindConf[] = "/etc/samba/winbind.conf";
constexpr char kUsermapConf[] = "/etc/quillfold/samba/usermap.conf";
constexpr char kUsermapImport[] = "_ksdb_cifs_service_username_map_import";
constexpr char kUsermapExport[] = "_ksdb_cifs_service_username_map_export";
constexpr char kExportName[] = "ksdb_cifs_service_export";

// A value of smb.conf: one line that does not end in a backslash, with
// nothing samba would read as a section, a comment, a substitution or a
// quote, and nothing a shell would expand where samba hands it to one.
const ValueRule kSambaSetting{"a Samba setting", "[];#%\"'`$", kValueNoTrailingBackslash};
// A name of the user-name map: one word that is neither a pattern nor a
// group nor a list ("root = *" would map everybody to root).
const ValueRule kUsermapName{"a user-name map entry", " \t[];#%\"'`$=*!&+@",
                             kValueNotEmpty | kValueNoTrailingBackslash};
// A volume name: the section name, a path component and quoted text of an
// administrative share.
const ValueRule kVolumeName{"an administrative share name", "/[];#%\"'`$\\",
                            kValuePathComponent | kValueNoLeadingBlank | kValueNoTrailingBlank};

// smb.conf.  The domain-only parameters carry a prefix that the first
// query of their line yields: "#dashboard:" on a stand-alone appliance
// (samba reads a comment, the samba import still finds the value) and a
// blank in a domain.  orgunit, restrict_ou, no_sync_ads and
// domain_admin_user are this system's own and always stay behind
// "#dashboard:".  The yes/no parameters samba refuses empty (allow trusted
// domains in a domain, hostname lookups, oplocks) and security are
// commented out with "#" while unset: samba then uses its own default, and
// the import leaves the column unset.
const char *const kSambaTemplate[] = {
    "# This file is auto-generated.  Do not modify!\n",
    "\n",
    "[global]\n",
    " include = /etc/quillfold/samba/smb.conf.defaults\n",
    " host msdfs = yes\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' WHEN IFNULL(allow_trusted_domains,'')='' THEN '#' ELSE ' ' END FROM service_cifs}} allow trusted domains = {SQL{SELECT allow_trusted_domains FROM service_cifs LIMIT 1}}\n",
    " dos charset = {SQL{SELECT CASE WHEN S.val='ja' THEN 'CP932' WHEN S.val='ko' THEN 'CP949' WHEN S.val='zh-tw' THEN 'CP950' WHEN S.val LIKE 'zh%%' THEN 'CP936' WHEN S.val='cz' THEN 'CP1250' WHEN S.val='da' THEN 'CP1252' WHEN S.val='nl' THEN 'CP1252' WHEN S.val='fi' THEN 'CP1252' WHEN S.val='fr' THEN 'CP1252' WHEN S.val='de' THEN 'CP1252' WHEN S.val='hu' THEN 'CP1250' WHEN S.val='it' THEN 'CP1252' WHEN S.val='pl' THEN 'CP1250' WHEN S.val='es' THEN 'CP1252' WHEN S.val='ru' THEN 'CP1251' ELSE 'CP1252' END FROM service_misc S WHERE key='LANGUAGE'}}\n",
    " guest account = guest\n",
    "{SQL{SELECT CASE WHEN IFNULL(hostname_lookups,'')='' THEN '#' ELSE ' ' END FROM service_cifs}}hostname lookups = {SQL{SELECT hostname_lookups FROM service_cifs}}\n",
    " invalid users = root\n",
    " load printers = 0\n",
    " log level = 0 auth:2\n",
    " map to guest = {SQL{SELECT CASE WHEN map_to_guest='' THEN 'bad user' ELSE IFNULL(map_to_guest,'bad user') END FROM service_cifs}}\n",
    " max log size = 512\n",
    " name resolve order = lmhosts host wins bcast\n",
    "{SQL{SELECT CASE WHEN IFNULL(oplocks,'')='' THEN '#' ELSE ' ' END FROM service_cifs}}oplocks = {SQL{SELECT oplocks FROM service_cifs}}\n",
    " passdb backend = tdbsam\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}#dashboard:orgunit = {SQL{SELECT orgunit FROM service_cifs}}\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}#dashboard:restrict_ou = {SQL{SELECT restrict_ou FROM service_cifs}}\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}#dashboard:no_sync_ads = {SQL{SELECT no_sync_ads FROM service_cifs}}\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}idmap config * : backend = {SQL{SELECT idmap_backend FROM service_cifs}}\n",
    " idmap config * : range = 32768 - 2147483647\n",
    " passwd program = \"/usr/bin/passwd %u\"\n",
    "{SQL{SELECT CASE WHEN security='user' THEN '#dashboard:' ELSE ' ' END FROM service_cifs}}password server = {SQL{SELECT CASE WHEN IFNULL(password_server,'')='' THEN '*' ELSE password_server END FROM service_cifs}}\n",
    " realm = {SQL{SELECT realm FROM service_cifs}}\n",
    "{SQL{SELECT CASE WHEN IFNULL(security,'')='' THEN '#' ELSE ' ' END FROM service_cifs}}security = {SQL{SELECT security FROM service_cifs}}\n",
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

// ---- guarding ----------------------------------------------------------------------

// Every value the samba files are made from, before any of them is
// written.  *rows: the number of service_cifs rows.
int guard_samba(ksdb_handle *h, sqlite3 *db, int *rows) {
    if (int rc = row_count(h, db, "service_cifs", rows)) return rc;
    if (int rc = guard_rows(h, db, "service_cifs", "rowid",
                            {{"allow_trusted_domains"}, {"hostname_lookups"}, {"map_to_guest"},
                             {"oplocks"}, {"orgunit"}, {"restrict_ou"}, {"no_sync_ads"},
                             {"idmap_backend"}, {"password_server"}, {"realm"}, {"security"},
                             {"workgroup"}, {"domain_admin_user"}},
                            kSambaSetting))
        return rc;
    if (int rc = guard_rows(h, db, "_volume", "id", {{"lv_name"}}, kVolumeName,
                            "uuid IS NOT NULL AND lv_name IS NOT NULL"))
        return rc;
    if (int rc = guard_rows(h, db, TABLE_SMB_USERNAME_MAP, "id",
                            {{"unix_uname"}, {"smb_uname"}, {"type"}}, kUsermapName)) {
        KSDB_ERR(h, "%s: Failed to export smb username map! rc = %d\n", kExportName, rc);
        return rc;
    }
    return 0;
}

// ---- writing -------------------------------------------------------------------------

// The administrative shares: the home folders and every volume that has a
// uuid (a real, mounted file system).
int write_admin_shares(ksdb_handle *h, sqlite3 *db) {
    return write_file(h, db, kSharesAdmin, [&](ManagedFile &out) {
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
            return static_cast<int>(KSDB_E_DB);
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
        return 0;
    });
}

// winbind.conf marks domain mode for the start-up scripts: present exactly
// when samba's security is something other than "user".
int write_winbind_marker(ksdb_handle *h, sqlite3 *db) {
    std::optional<std::string> security;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &security, "SELECT security FROM service_cifs") != 0)
        return KSDB_E_DB;
    if (security && *security != "user")
        return write_file(h, db, kWinbindConf, [](ManagedFile &out) {
            out.write("# used by svf\n");
            return 0;
        });
    if (!fs::remove(h, kWinbindConf)) {
        KSDB_ERR(h, "Cannot remove %s\n", kWinbindConf);
        return KSDB_E_FILE;
    }
    return 0;
}

// The user-name map: a "#TYPE" line and a "unix = smb" line per row.
int _ksdb_cifs_service_username_map_export(ksdb_handle *h, sqlite3 *db) {
    return write_file(h, db, kUsermapConf, [&](ManagedFile &out) {
        SqlTable t;
        if (t.query(h, db, KSDB_TAG, "SELECT unix_uname, smb_uname, type FROM %s",
                    TABLE_SMB_USERNAME_MAP) != SQLITE_OK) {
            KSDB_ERR(h, "%s: Query Error for SELECT %s\n", kUsermapExport, TABLE_SMB_USERNAME_MAP);
            return static_cast<int>(KSDB_E_DB);
        }
        for (int r = 0; r < t.rows(); ++r) {
            out.printf("#%s\n", t.str(r, 2));
            out.printf("%s = %s\n", t.str(r, 0), t.str(r, 1));
        }
        return 0;
    });
}

int export_samba(ksdb_handle *h, sqlite3 *db) {
    int rows = 0;
    if (int rc = guard_samba(h, db, &rows)) return rc;
    if (rows == 0) {
        // Before the service has its settings row there is nothing to say:
        // the files stay as they are.
        KSDB_INFO(h, "service_cifs has no row: samba files left as they are\n");
        return 0;
    }
    int rc = logged(h, KSDB_TAG, "_ksdb_service_export",
                    [&] { return write_template_file(h, db, kSmbConf, kSambaTemplate); });
    if (rc) return rc;
    if ((rc = write_admin_shares(h, db))) return rc;
    if ((rc = write_winbind_marker(h, db))) return rc;
    if ((rc = _ksdb_cifs_service_username_map_export(h, db))) {
        KSDB_ERR(h, "%s: Failed to export smb username map! rc = %d\n", kExportName, rc);
        return rc;
    }
    return 0;
}

// ---- reading --------------------------------------------------------------------------

// Reads the user-name map: records of a "#TYPE" line followed by a
// "unix = smb" line.  The table is not emptied first, so a name already
// mapped makes the insert fail.
int _ksdb_cifs_service_username_map_import(ksdb_handle *h, sqlite3 *db, ConfFile &map) {
    int rc = 0;
    std::optional<std::string> type;  // the type line just read
    map.lines([&](char *raw) {
        const std::string_view line = skip_blanks(raw);
        if (type) {
            const std::string record_type = std::move(*type);
            type.reset();
            std::string_view unix_view, smb_view;
            if (!split_key_value(line, '=', &unix_view, &smb_view) || unix_view.empty() ||
                smb_view.empty())
                return true;
            const std::string unix_name(unix_view), smb_name(smb_view);
            SqlStr sql = sql_printf("INSERT INTO %s (unix_uname, smb_uname, type) VALUES(%Q,%Q,%Q)",
                                    TABLE_SMB_USERNAME_MAP, unix_name.c_str(), smb_name.c_str(),
                                    record_type.c_str());
            if (!sql || ksdb_sql_exec(h, db, nullptr, KSDB_TAG, sql.get()) != SQLITE_OK) {
                KSDB_ERR(h, "%s: Failed to insert %s\n", kUsermapImport, TABLE_SMB_USERNAME_MAP);
                KSDB_ERR(h, "%s: unix_uname = %s, smb_uname = %s, type = %s\n", kUsermapImport,
                         unix_name.c_str(), smb_name.c_str(), record_type.c_str());
                rc = KSDB_E_DB;
                return false;
            }
            return true;
        }
        if (line.size() > 1 && line[0] == '#') {
            std::string t(line.substr(1));
            if (ksdb_valid_smb_username_map_type(t.c_str()))
                type = std::move(t);
            else
                KSDB_ERR(h, "%s: Unknown type %s!\n", kUsermapImport, t.c_str());
        }
        return true;
    });
    return rc;
}

int import_samba(ksdb_handle *h, sqlite3 *db) {
    ConfFile conf(h, kSmbConf);
    if (!conf.ok()) return cannot_load(h, conf, 0);
    int rc = 0;
    conf.lines([&](char *raw) {
        std::string_view line = skip_blanks(raw);
        // Section headers are skipped, not tracked.
        if (line.starts_with('[')) return true;
        // The domain-only parameters of a stand-alone appliance sit behind
        // this prefix; their values are still read.
        if (line.starts_with("#dashboard:")) line.remove_prefix(11);
        if (line.starts_with('#')) return true;
        std::string_view key, value;
        if (!split_key_value(line, '=', &key, &value)) key = trim_blanks(line);
        rc = _ksdb_apply_setting(h, db, smb_global_map, 0, std::string(key).c_str(),
                                 std::string(value).c_str());
        return rc == 0;
    });
    if (rc) return rc;

    ConfFile map(h, kUsermapConf);
    if (!map.ok()) return cannot_load(h, map, 0);
    if (int r = _ksdb_cifs_service_username_map_import(h, db, map)) {
        KSDB_ERR(h, "%s: Failed to import smb username map! rc = %d\n", "ksdb_cifs_service_import",
                 r);
        return r;
    }
    return 0;
}

}  // namespace
}  // namespace ksdb::service

KSDB_STEP(ksdb_cifs_service_import) { return ksdb::service::import_samba(h, db); }

KSDB_STEP(ksdb_cifs_service_export) { return ksdb::service::export_samba(h, db); }
