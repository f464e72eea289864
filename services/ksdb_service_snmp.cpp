// The SNMP agent's service file: snmpd.conf from service_snmp and the
// platform's system object identifier, written after the shared settings
// file /etc/default/services.
#define KSDB_MODULE "ksdb_service_snmp"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"
#include "platform/platform.h"

#include <cstdlib>
#include <string>
#include <string_view>

namespace ksdb::service {
namespace {

constexpr char kSnmpdConf[] = "/etc/snmp/snmpd.conf";
// The size of the buffer the platform fills with the object identifier.
constexpr size_t kObjectIdSize = 1024;

// The community and each allowed source or trap destination stand as one
// token of a directive: a blank would add a token, a quote or a backslash
// would be read as quoting, a "#" as a comment.
const ValueRule kSnmpWord{"a word of an snmpd directive", " \t#\"'\\", 0};
// The contact and the location take the rest of their line, blanks
// included, but nothing the agent reads as quoting or a comment; a value
// with blanks at either end would lose them (and one made of blanks only
// leaves the directive without its argument).
const ValueRule kSnmpText{"an snmpd text", "#\"'\\", kValueNoLeadingBlank | kValueNoTrailingBlank};

// The allowed sources and the community as the file uses them: an empty
// text stands for "default" and "public".
constexpr char kAllowHost[] = "CASE WHEN allow_host='' THEN 'default' ELSE allow_host END";
constexpr char kCommunity[] = "CASE WHEN community=='' THEN 'public' ELSE community END";

// Every value of service_snmp that reaches snmpd.conf, before any file of
// the export is written.
int guard_snmp(ksdb_handle *h, sqlite3 *db) {
    if (int rc = guard_rows(h, db, "service_snmp", "rowid",
                            {{"allow_host", kAllowHost},
                             {"community", kCommunity},
                             {"trap_destination"}},
                            kSnmpWord))
        return rc;
    return guard_rows(h, db, "service_snmp", "rowid", {{"contact"}, {"location"}}, kSnmpText);
}

// Calls write(piece) for every piece of a comma-separated list; runs of
// commas and empty pieces are skipped.
template <class Write>
void for_each_listed(std::string_view list, Write &&write) {
    while (!list.empty()) {
        const size_t comma = list.find(',');
        const std::string_view piece = list.substr(0, comma);
        if (!piece.empty()) write(piece);
        if (comma == std::string_view::npos) break;
        list.remove_prefix(comma + 1);
    }
}

// The appliance's system object identifier from the platform, or "" when
// it has none.  The agent reads only numeric identifiers (no MIBs are
// loaded), so anything else is left out too.
std::string system_object_id(ksdb_handle *h) {
    char buffer[kObjectIdSize] = "";
    if (getSysObjectID(buffer, sizeof buffer) != 0) {
        KSDB_INFO(h, "No SNMP system object identifier: sysObjectID left out\n");
        return std::string();
    }
    buffer[sizeof buffer - 1] = '\0';
    const std::string_view oid(buffer);
    if (oid.empty() || oid.find_first_not_of("0123456789.") != std::string_view::npos) {
        KSDB_WARN(h, "The SNMP system object identifier is not numeric: sysObjectID left out\n");
        return std::string();
    }
    return std::string(oid);
}

// snmpd.conf from the first row of service_snmp (a table without a row
// reads as a switched-off agent).
int write_snmpd_conf(ksdb_handle *h, sqlite3 *db) {
    return write_file(h, db, kSnmpdConf, [&](ManagedFile &out) {
        SqlTable t;
        if (t.query(h, db, KSDB_TAG,
                    "SELECT enabled,%s,%s,trap_destination,contact,location FROM service_snmp "
                    "LIMIT 1",
                    kAllowHost, kCommunity) != SQLITE_OK) {
            KSDB_ERR(h, "Query Error for SELECT service_snmp\n");
            return static_cast<int>(KSDB_E_DB);
        }
        const bool row = t.rows() > 0;
        auto column = [&](int c) { return std::string_view(row ? t.str(0, c) : ""); };
        const bool enabled = row && t.at(0, 0) && std::atoi(t.at(0, 0)) != 0;
        const std::string_view allow_host = column(1), community = column(2),
                               trap_destination = column(3), contact = column(4),
                               location = column(5);

        out.write("sysDescr Kestrava OS\n");
        if (const std::string oid = system_object_id(h); !oid.empty())
            out.printf("sysObjectID %s\n", oid.c_str());
        if (!contact.empty()) out.printf("sysContact %.*s\n", int(contact.size()), contact.data());
        if (!location.empty())
            out.printf("sysLocation %.*s\n", int(location.size()), location.data());
        out.write("group MyROGroup v1 readonly\n"
                  "group MyROGroup v2c readonly\n"
                  "group MyROGroup usm readonly\n"
                  "view all included .1 80\n"
                  "access MyROGroup \"\" any noauth exact all none none\n"
                  "dontLogTCPWrappersConnects 1\n");
        if (enabled) {
            // A source holding ":" is an IPv6 address or network.
            for_each_listed(allow_host, [&](std::string_view source) {
                out.printf("%s readonly %.*s %.*s\n",
                           source.find(':') != std::string_view::npos ? "com2sec6" : "com2sec",
                           int(source.size()), source.data(), int(community.size()),
                           community.data());
            });
            out.printf("trapcommunity %.*s\n", int(community.size()), community.data());
            for_each_listed(trap_destination, [&](std::string_view sink) {
                out.printf("trap2sink %.*s\n", int(sink.size()), sink.data());
            });
            out.write("master agentx\n");
        }
        out.write("agentXTimeout 8\n"
                  "agentXRetries 2\n");
        return 0;
    });
}

// The shared settings file first, then snmpd.conf; a value that cannot
// stand in snmpd.conf stops the export before either is written.
int export_snmp(ksdb_handle *h, sqlite3 *db) {
    if (int rc = guard_snmp(h, db)) return rc;
    if (int rc = ksdb_default_service_export(h, db)) return rc;
    return write_snmpd_conf(h, db);
}

}  // namespace
}  // namespace ksdb::service

KSDB_STEP(ksdb_snmp_service_export) { return ksdb::service::export_snmp(h, db); }
