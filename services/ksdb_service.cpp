// Service settings: the key tables of the one-row service tables, the
// shared settings file /etc/default/services both ways, the host-name-lookup
// switch, the exported names and queries, and what the service modules
// share (ksdb_service.h).
#define KSDB_MODULE "ksdb_service"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

extern "C" {
const char *const TABLE_SMB_USERNAME_MAP = "smb_username_map";
const char *const TABLE_SMB_USERNAME_MAP_TYPE_HASH = "HASH";
const char *const TABLE_SMB_USERNAME_MAP_TYPE_UNAME = "UNAME";
}

namespace ksdb::service {

// ---- key tables --------------------------------------------------------------------

// DISALLOW_PASSOWRD_CHANGE is spelled the way the other programs that share
// the file write it.  The AVAHI keys are owned by the announcement
// settings: an import only records them, and an export writes what
// service_avahi holds.
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

const ksdb_service_setting_map_entry proftpd_port_map[] = {
    {"Port", "service_ftp", "port", 1, 0},
    {nullptr, nullptr, nullptr, 0, 0},
};

// ---- reading -------------------------------------------------------------------------

int cannot_load(ksdb_handle *h, const ConfFile &conf, int missing_status, uint32_t missing_level) {
    if (conf.missing()) {
        KSDB_LOG(h, missing_level, "Cannot load %s\n", conf.path().c_str());
        return missing_status;
    }
    KSDB_ERR(h, "Cannot load %s\n", conf.path().c_str());
    return KSDB_E_FILE;
}

int read_hostname(ksdb_handle *h, std::string *name) {
    ConfFile conf(h, "/etc/hostname");
    if (!conf.ok() && !conf.missing()) return cannot_load(h, conf, 0);
    const std::string_view text = conf.ok() ? conf.text() : std::string_view();
    *name = text.empty() ? "localhost"
                         : std::string(text.substr(0, std::min<size_t>(text.find('\n'), 127)));
    return 0;
}

std::string_view skip_blanks(std::string_view line) {
    const size_t i = line.find_first_not_of(" \t\n\v\f\r");
    return i == std::string_view::npos ? line.substr(line.size()) : line.substr(i);
}

std::string_view split_first(std::string_view line, const char *seps, std::string_view *rest) {
    const size_t at = line.find_first_of(seps);
    *rest = at == std::string_view::npos ? line.substr(line.size()) : line.substr(at + 1);
    return line.substr(0, at);
}

std::string_view quoted_or_self(std::string_view s) {
    const size_t open = s.find('"');
    if (open == std::string_view::npos) return s;
    s.remove_prefix(open + 1);
    return s.substr(0, s.find('"'));
}

// ---- guarding --------------------------------------------------------------------------

int guard_setting(ksdb_handle *h, std::string_view value, const ValueRule &rule,
                  const ValueSource &src) {
    if (int rc = guard_value(h, value, rule, src)) return rc;
    if (value.find('/') == std::string_view::npos) return 0;
    for (size_t start = 0;;) {
        const size_t slash = value.find('/', start);
        if (int rc = guard_value(h, value.substr(start, slash - start), rules::kPathComponent, src))
            return rc;
        if (slash == std::string_view::npos) return 0;
        start = slash + 1;
    }
}

int row_count(ksdb_handle *h, sqlite3 *db, const char *table, int *n) {
    *n = 0;
    if (ksdb_sql_get_int32_mprintf(h, db, nullptr, KSDB_TAG, n, nullptr, "SELECT COUNT(*) FROM %s",
                                   table) != 0) {
        KSDB_ERR(h, "Query Error for SELECT %s\n", table);
        return KSDB_E_DB;
    }
    return 0;
}

int guard_rows(ksdb_handle *h, sqlite3 *db, const char *table, const char *key,
               std::initializer_list<Guarded> columns, const ValueRule &rule, const char *where) {
    std::string select = key;
    for (const Guarded &g : columns) select += std::string(",") + (g.expr ? g.expr : g.column);
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT %s FROM %s%s%s", select.c_str(), table,
                where ? " WHERE " : "", where ? where : "") != SQLITE_OK) {
        KSDB_ERR(h, "Query Error for SELECT %s\n", table);
        return KSDB_E_DB;
    }
    for (int r = 0; r < t.rows(); ++r) {
        const std::string row = std::string(key) + " " + t.str(r, 0);
        int c = 0;
        for (const Guarded &g : columns) {
            const char *value = t.at(r, ++c);
            if (!value) continue;
            if (int rc = guard_setting(h, value, rule, {table, g.column, row})) return rc;
        }
    }
    return 0;
}

// ---- writing -----------------------------------------------------------------------------

// A newline could only be kept in quotes that span lines, which the
// line-by-line import would not read back: such a value is refused.
const ValueRule kSourcedValue{"a value a shell sources", "", 0};

void write_sourced(ManagedFile &out, std::string_view key, std::string_view value) {
    std::string line(key);
    line += '=';
    for (char c : value) {
        // The escaper's characters, the command separator and the tilde
        // (expanded at the start of an assigned value).
        if (c == ';' || c == '~' || (c != '\0' && std::strchr(kShellSpecials, c))) line += '\\';
        line += c;
    }
    line += '\n';
    out.write(line);
}

namespace {

constexpr char kDefaultServices[] = "/etc/default/services";

// A key of service_misc becomes the name of a shell variable: letters,
// digits and "_", not starting with a digit.
const std::string kNotInName = [] {
    std::string s;
    for (int c = 1; c < 256; ++c)
        if (!(c == '_' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')))
            s += static_cast<char>(c);
    return s;
}();
const ValueRule kShellName{"a shell variable name", kNotInName.c_str(), kValueNotEmpty};
const ValueRule kShellNameStart{"the start of a shell variable name", "0123456789", 0};

// ---- /etc/default/services -----------------------------------------------------------------

// Both import categories read the file the same way; they differ only in
// how a missing file is judged.
int import_default_services(ksdb_handle *h, sqlite3 *db, uint32_t missing_level,
                            int missing_status) {
    ConfFile conf(h, kDefaultServices);
    if (!conf.ok()) return cannot_load(h, conf, missing_status, missing_level);
    int rc = 0;
    conf.lines([&](char *raw) {
        const std::string_view line = skip_blanks(raw);
        if (line.starts_with('#')) return true;
        // The key as it stands; the value as the shell reads it (a
        // backslash makes the next character literal), not trimmed.
        std::string_view rest;
        const std::string key(split_first(line, "=", &rest));
        std::string value(rest);
        unescape_for_shell(value.data());
        rc = _ksdb_apply_setting(h, db, default_services_map, 1, key.c_str(), value.c_str());
        return rc == 0;
    });
    return rc;
}

// Writes /etc/default/services from the tables: the mapped columns in the
// key table's order, then the free keys kept in service_misc.  Every value
// is escaped for the shell that sources the file.
int export_default_services(ksdb_handle *h, sqlite3 *db) {
    return write_file(h, db, kDefaultServices, [&](ManagedFile &out) {
        for (const ksdb_service_setting_map_entry *e = default_services_map; e->key; ++e) {
            std::optional<std::string> value;
            if (sql_scalar(h, db, nullptr, KSDB_TAG, &value, "SELECT %s FROM %s LIMIT 1",
                           e->column_name, e->table_name) != 0) {
                KSDB_ERR(h, "Query Error for SELECT %s.%s\n", e->table_name, e->column_name);
                return static_cast<int>(KSDB_E_DB);
            }
            const std::string v = value.value_or("");
            if (int rc = guard_value(h, v, kSourcedValue, {e->table_name, e->column_name, e->key}))
                return rc;
            write_sourced(out, e->key, v);
        }
        SqlTable misc;
        if (misc.query(h, db, KSDB_TAG,
                       "SELECT key,val FROM service_misc WHERE table_name IS NULL AND "
                       "column_name IS NULL") != SQLITE_OK) {
            KSDB_ERR(h, "Query Error for SELECT service_misc\n");
            return static_cast<int>(KSDB_E_DB);
        }
        for (int r = 0; r < misc.rows(); ++r) {
            const char *key = misc.at(r, 0);
            if (!key) continue;
            const ValueSource src{"service_misc", "key", key};
            if (int rc = guard_value(h, key, kShellName, src)) return rc;
            if (int rc = guard_value(h, std::string_view(key, 1), kShellNameStart, src)) return rc;
            if (int rc = guard_value(h, misc.str(r, 1), kSourcedValue, {"service_misc", "val", key}))
                return rc;
            write_sourced(out, key, misc.str(r, 1));
        }
        return 0;
    });
}

// ---- host-name-lookup switch ---------------------------------------------------------------

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

}  // namespace
}  // namespace ksdb::service

// ---- entry points -----------------------------------------------------------------

KSDB_STEP(ksdb_default_service_import) {
    return ksdb::service::import_default_services(h, db, KSDB_LOG_INFO, 0);
}

KSDB_STEP(ksdb_service_import) {
    return ksdb::service::import_default_services(h, db, KSDB_LOG_ERROR, KSDB_E_FILE);
}

KSDB_STEP(ksdb_default_service_export) { return ksdb::service::export_default_services(h, db); }

// The SERVICE category's exporter.  The service switches (SAMBA, NETATALK,
// PROFTPD, NFS, SSH ...) live in /etc/default/services, so switching
// services means writing that file, exactly as the DEFAULT_SERVICE export
// writes it.
KSDB_STEP(ksdb_service_switch_export) { return ksdb::service::export_default_services(h, db); }

extern "C" {

int ksdb_valid_smb_username_map_type(const char *type) {
    if (!type) return 0;
    return std::strcmp(type, TABLE_SMB_USERNAME_MAP_TYPE_UNAME) == 0 ||
           std::strcmp(type, TABLE_SMB_USERNAME_MAP_TYPE_HASH) == 0;
}

int ksdb_is_service_ssh_enabled(ksdb_handle *h, sqlite3 *db) {
    return ksdb::boundary_value(h, KSDB_TAG, "ksdb_is_service_ssh_enabled", -1, [&] {
        int32_t enabled = 0;
        if (ksdb_sql_get_int32_mprintf(h, db, nullptr, KSDB_TAG, &enabled, nullptr,
                                       "SELECT enabled FROM `service_ssh`") != 0) {
            KSDB_ERR(h, "%s: Error in query (SELECT `service_ssh`)\n",
                     "ksdb_is_service_ssh_enabled");
            return -1;
        }
        return static_cast<int>(enabled);
    });
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
    return ksdb::boundary(h, KSDB_TAG, "ksdb_service_update_setting_by_share", [&] {
        const int r = ksdb::service::_ksdb_host_acl_has_hostname(h, db, protocol);
        KSDB_DEBUG(h, "%s: protocol %s, r = %d.\n", name, protocol, r);
        if (ksdb::service::_ksdb_update_table_column_int(h, db, table, column, r) != 0) {
            KSDB_ERR(h, "Failed to call _ksdb_update_table_column_int!\n");
            return static_cast<int>(KSDB_E_DB);
        }
        KSDB_DEBUG(h, "%s: set %s to %d\n", name, column, r);
        return 0;
    });
}

}  // extern "C"
