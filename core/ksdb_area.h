// What an area file includes: the module tag and log shorthands, the exit
// log, the C boundary (no exception leaves the library), the transaction
// guard and the thread's last-error record (all in core/ksdb_internal.h),
// the step declarations (core/ksdb_areas.h), and the shared mechanisms
// every importer and exporter uses (files, the configuration reader, the
// value guard, the statement helpers).
//
// An area file reads top-down and ends with its steps:
//
//     #define KSDB_MODULE "ksdb_nfs"
//     #include "core/ksdb_area.h"
//     namespace ksdb::nfs { namespace { ...the writer and the reader... } }
//     KSDB_STEP(ksdb_nfs_share_export) { return ksdb::nfs::write_exports(h, db); }
//
// KSDB_STEP defines the step the driver runs (its C declaration comes from
// the step list, core/ksdb_steps.def, through core/ksdb_areas.h): the body
// runs inside the C boundary and ends with the exit log
// "name() ==> status (Nms)".  A step the area defines has the state
// PROVIDED in the step list.
#pragma once

#include "core/ksdb_internal.h"
#include "core/ksdb_areas.h"
#include "util/ksdb_conf_reader.h"
#include "util/ksdb_file_utils.h"
#include "util/ksdb_fs.h"
#include "util/ksdb_raii.h"
#include "util/ksdb_sql_helpers.h"
#include "util/ksdb_value_guard.h"

#include <string>

// Defines a step of the step list: `KSDB_STEP(name) { body }`, with `h` and
// `db` in scope.  The body runs inside the C boundary and ends with the
// exit log under the step's name.
#define KSDB_STEP(name)                                                                   \
    static int name##_body(ksdb_handle *h, sqlite3 *db);                                  \
    int name(ksdb_handle *h, sqlite3 *db) {                                               \
        return ::ksdb::logged(h, KSDB_TAG, #name, [&] { return name##_body(h, db); }); \
    }                                                                                     \
    static int name##_body([[maybe_unused]] ksdb_handle *h, [[maybe_unused]] sqlite3 *db)
