// The vital product data: the appliance's vendor, model and serial number,
// copied from the system-information record the handle carries into the
// one row of vital_product_data.  Nothing is exported from it.
#define KSDB_MODULE "ksdb_vpd"
#include "core/ksdb_area.h"

#include "core/ksdb_areas.h"

#include <cstring>
#include <optional>
#include <string>

namespace ksdb::vpd {
namespace {

// A string of the record: at most its field's length (a record that lost
// its terminator is not read past its field); NULL without a record.
template <size_t N>
std::optional<std::string> field(const ksdb_sys_info *info, const char (ksdb_sys_info::*f)[N]) {
    if (!info) return std::nullopt;
    const char *s = info->*f;
    return std::string(s, strnlen(s, N));
}

const char *c_str(const std::optional<std::string> &s) { return s ? s->c_str() : nullptr; }

// The channel count and the automatic-expansion flag are not known to the
// record: both are stored as 0.
int import_vpd(ksdb_handle *h, sqlite3 *db) {
    const auto vendor = field(h->sys_info, &ksdb_sys_info::vendor);
    const auto model = field(h->sys_info, &ksdb_sys_info::model);
    const auto serial = field(h->sys_info, &ksdb_sys_info::serial);
    if (int rc = exec_or_fail(h, db, "Error in SQL Exec.\n", "DELETE FROM vital_product_data"))
        return rc;
    return exec_or_fail(h, db, "Error in SQL Exec.\n",
                        "REPLACE INTO vital_product_data (vendor,model,serial,max_chan,autospan) "
                        "VALUES(%Q,%Q,%Q,%d,%d)",
                        c_str(vendor), c_str(model), c_str(serial), 0, 0);
}

}  // namespace
}  // namespace ksdb::vpd

KSDB_STEP(ksdb_vpd_import) { return ksdb::vpd::import_vpd(h, db); }

// The product data goes nowhere: the export is its exit log alone.
KSDB_STEP(ksdb_vpd_export) { return 0; }
