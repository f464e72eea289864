// The DAAP media server's settings read back from its own file.
#define KSDB_MODULE "ksdb_service_daap"
#include "services/ksdb_service.h"

#include "core/ksdb_areas.h"

#include <string>

namespace ksdb::service {
namespace {

constexpr char kDaapConf[] = "/etc/forked-daapd.conf";

// "key = value" lines; a quoted value is taken between its quotes, any
// other as it stands.  Updates only: the DAAP row is made by the media
// settings.
int import_daap(ksdb_handle *h, sqlite3 *db) {
    ConfFile conf(h, kDaapConf);
    if (!conf.ok()) return cannot_load(h, conf, 0);
    int rc = 0;
    conf.lines([&](char *raw) {
        if (std::string_view(raw).starts_with(" #")) return true;
        const std::string_view line = skip_blanks(raw);
        if (line.starts_with('#')) return true;
        std::string_view rest;
        const std::string_view key = trim_blanks(split_first(line, "=", &rest));
        const char *column = key == "name"          ? "sharename"
                             : key == "password"    ? "password"
                             : key == "directories" ? "directory"
                                                    : nullptr;
        if (!column) return true;
        const std::string value(quoted_or_self(rest));
        rc = exec_or_fail(h, db, "Failed to UPDATE service_daap\n", "UPDATE service_daap SET %s=%Q",
                          column, value.c_str());
        return rc == 0;
    });
    return rc;  // 0, or 3 from the first failed update
}

}  // namespace
}  // namespace ksdb::service

KSDB_STEP(ksdb_daap_service_import) { return ksdb::service::import_daap(h, db); }
