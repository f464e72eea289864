// Service settings: the one-row service tables, /etc/default/services and
// the daemons' configuration files generated from them.
#define KSDB_MODULE "ksdb_service"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"

#include <cstring>

namespace ksdb {

namespace {

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

}  // namespace ksdb

extern "C" {

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
