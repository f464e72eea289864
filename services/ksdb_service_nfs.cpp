// The kernel NFS server's service files: its start-up options in
// /etc/default/nfs-kernel-server (sourced by its init script) and the
// NFSv4 id-mapping settings in /etc/idmapd.conf.
#define KSDB_MODULE "ksdb_service_nfs"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

#include <cstdlib>
#include <string>

namespace ksdb::service {
namespace {

constexpr char kNfsDefaults[] = "/etc/default/nfs-kernel-server";
constexpr char kIdmapdConf[] = "/etc/idmapd.conf";

// The id-mapping domain of idmapd.conf: one word of a "key = value" line.
const ValueRule kNfsDomain{"an NFS id-mapping domain", " \t[];#%\"'`$\\=", 0};

int export_nfs(ksdb_handle *h, sqlite3 *db) {
    SqlTable t;
    if (t.query(h, db, KSDB_TAG, "SELECT S.enabled,S.threads,S.nfsv4,S.domain FROM service_nfs S") !=
        SQLITE_OK)
        return KSDB_E_DB;
    if (t.rows() == 0) return 0;
    if (int rc = guard_rows(h, db, "service_nfs", "rowid", {{"domain"}}, kNfsDomain)) return rc;
    // `enabled` is read with the rest but changes neither file.
    const char *threads = t.at(0, 1);
    const char *nfsv4 = t.at(0, 2);
    const char *domain = t.at(0, 3);
    const bool v4 = nfsv4 && std::strtol(nfsv4, nullptr, 10) != 0;

    // Sourced by the init script: the options go in as one value each.
    int rc = write_file(h, db, kNfsDefaults, [&](ManagedFile &out) {
        const int count = threads ? static_cast<int>(std::strtol(threads, nullptr, 10)) : 1;
        write_sourced(out, "RPCNFSDCOUNT", std::to_string(count));
        write_sourced(out, "RPCNFSDARGS", v4 ? "" : "--no-nfs-version 4");
        write_sourced(out, "RPCMOUNTDOPTS", v4 ? "--manage-gids" : "--manage-gids --no-nfs-version 4");
        write_sourced(out, "NEED_SVCGSSD", "");
        write_sourced(out, "RPCSVCGSSDOPTS", "");
        return 0;
    });
    if (rc) return rc;

    return write_file(h, db, kIdmapdConf, [&](ManagedFile &out) {
        out.write("[General]\n"
                  "Verbosity = 0\n"
                  "Pipefs-Directory = /var/lib/nfs/rpc_pipefs\n");
        if (domain && *domain) out.printf("Domain = %s\n", domain);
        out.write("[Mapping]\n"
                  "Nobody-User = guest\n"
                  "Nobody-Group = guest\n");
        return 0;
    });
}

}  // namespace
}  // namespace ksdb::service

KSDB_STEP(ksdb_nfs_service_export) { return ksdb::service::export_nfs(h, db); }
