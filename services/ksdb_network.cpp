// The network interfaces: one row of network_if per IPv4 interface that is
// not a loopback, with its hardware address as six lower-case hexadecimal
// bytes joined by ':'.  The interfaces come from the platform layer, so an
// integrator's library, a test or a debug tree can supply them.  Nothing
// is exported from the table.
#define KSDB_MODULE "ksdb_network"
#include "core/ksdb_area.h"

#include "core/ksdb_areas.h"
#include "platform/platform.h"

#include <net/if.h>

#include <cstring>
#include <string>

namespace ksdb::network {
namespace {

constexpr char kInsertFailed[] = "Failed DB insert 'INSERT network_if'\n";

// The interface of an appliance with one port, whose address is written
// as it always has been (upper case).
constexpr char kFixedRow[] =
    "INSERT OR REPLACE INTO network_if (name,mac) VALUES('eth0','00:22:3F:A9:9A:1E')";

int import_interfaces(ksdb_handle *h, sqlite3 *db) {
    // Below a debug root the machine's own interfaces are never read: the
    // scan is handed the root, and the built-in one lists only what the
    // tree holds.  A tree (or a platform set) that lists nothing stands
    // for the one-port appliance.
    const bool rooted = debug_root_set(h);
    ksdb_net_if ifs[KSDB_MAX_NET_IFS];
    int count = 0;
    const int scan = net_if_scan(rooted ? h->debug_root : nullptr, ifs, KSDB_MAX_NET_IFS, &count);
    if (scan == KSDB_NET_IF_ENOSOCKET) return KSDB_E_STEP;
    if (scan != 0) {
        KSDB_ERR(h, "Failed SIOCGIFCONF\n");
        return KSDB_E_STEP;
    }
    if (count < 0 || count > KSDB_MAX_NET_IFS) count = count < 0 ? 0 : KSDB_MAX_NET_IFS;

    if (int rc = exec_or_fail(h, db, "Failed DB insert 'DELETE network_if'\n",
                              "DELETE FROM network_if"))
        return rc;
    if (rooted && count == 0) return exec_or_fail(h, db, kInsertFailed, "%s", kFixedRow);

    for (int i = 0; i < count; ++i) {
        const ksdb_net_if &e = ifs[i];
        // An interface whose flags or hardware address cannot be read is
        // skipped, as is every loopback.
        if (!e.flags_ok || (e.flags & IFF_LOOPBACK) || !e.hwaddr_ok) continue;
        const std::string name(e.name, strnlen(e.name, IFNAMSIZ - 1));
        const unsigned char *m = e.hwaddr;
        if (int rc = exec_or_fail(h, db, kInsertFailed,
                                  "INSERT OR REPLACE INTO network_if (name,mac) "
                                  "VALUES(%Q,'%02x:%02x:%02x:%02x:%02x:%02x')",
                                  name.c_str(), m[0], m[1], m[2], m[3], m[4], m[5]))
            return rc;
    }
    return 0;
}

}  // namespace
}  // namespace ksdb::network

KSDB_STEP(ksdb_network_import) { return ksdb::network::import_interfaces(h, db); }

// The interfaces go nowhere: the export is its exit log alone.
KSDB_STEP(ksdb_network_export) { return 0; }
