// The snapshot look-ups other areas use internally (the share statistics
// measure a share of type 'readonly' on the snapshot it is published
// from).
#pragma once

#include "core/ksdb_internal.h"

#include <string>

namespace ksdb {

// The name of the newest snapshot (largest creation time) of the dataset
// "<volume>/<share>" in the snapshot list: true with *name set; false when
// the dataset has no snapshot or the list cannot be read.
bool latest_snapshot_name(ksdb_handle *h, sqlite3 *db, const char *zfs_name, std::string *name);
// The same with ksdb_getLatestSnapshotName's status and messages: 0, 3 when
// the list cannot be read, 1 when the dataset has no snapshot.
int latest_snapshot(ksdb_handle *h, sqlite3 *db, const char *zfs_name, std::string *name);

}  // namespace ksdb
