// What the share statistics need from the snapshot list: the newest
// snapshot of a dataset.  A share of type 'readonly' is published from a
// snapshot, and its space is measured on that snapshot.
#pragma once

#include "core/ksdb_internal.h"

#include <string>

namespace ksdb {

// The name of the newest snapshot (largest creation time) of the dataset
// "<volume>/<share>" in the snapshot list: true with *name set; false when
// the dataset has no snapshot or the list cannot be read.
bool latest_snapshot_name(ksdb_handle *h, sqlite3 *db, const char *zfs_name, std::string *name);

}  // namespace ksdb
