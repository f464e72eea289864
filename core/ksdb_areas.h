// Entry points of the area modules, as the import/export driver calls them,
// declared from the step list (core/ksdb_steps.def).  Each takes the handle
// and the connection, runs inside the driver's transaction and returns a
// status.
//
// They have C linkage, so that a step a caller needs can also be declared
// with KSDB_API in ksdb.h (the same function, exported).  An area defines
// its steps with KSDB_STEP (core/ksdb_area.h); steps whose area is pending
// or not provided are defined in core/ksdb_steps.cpp.
#pragma once

#include "ksdb.h"

extern "C" {

#define KSDB_STEP_DEF(id, function, state, what) int function(ksdb_handle *h, sqlite3 *db);
#include "core/ksdb_steps.def"

// The per-share export of the share file-system attributes
// (ksdb_export_per_share), defined by that area.
int ksdb_share_fs_attribute_export_per_share(ksdb_handle *h, sqlite3 *db, const char *share);

}  // extern "C"
