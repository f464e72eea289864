// The newest snapshot of a dataset, read from the snapshot list for the
// share statistics.  The snapshot area answers the same question for its
// callers; once it is part of the library this file gives way to it.
#define KSDB_MODULE "ksdb_fs_attribute"
#include "shares/ksdb_fs_attribute.h"

#include <optional>

namespace ksdb {

bool latest_snapshot_name(ksdb_handle *h, sqlite3 *db, const char *zfs_name, std::string *name) {
    std::optional<std::string> found;
    if (sql_scalar(h, db, nullptr, KSDB_TAG, &found,
                   "SELECT name FROM `$snapshot` WHERE created_on=(SELECT MAX(created_on) FROM "
                   "`$snapshot` WHERE zfs_name=%Q)",
                   zfs_name) != SQLITE_OK ||
        !found)
        return false;
    *name = *found;
    return true;
}

}  // namespace ksdb
