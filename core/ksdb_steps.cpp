// The step table and the steps no area defines, both made from the step
// list: a placeholder for each step of an area still being built, a no-op
// with its exit log for each step of an area this library does not
// provide, and the steps that have nothing to do.
#define KSDB_MODULE "ksdb_steps"
#include "core/ksdb_internal.h"

#include "core/ksdb_areas.h"
#include "core/ksdb_driver.h"

#define KSDB_DEFINE_PROVIDED(function)
#define KSDB_DEFINE_PENDING(function) \
    int function(ksdb_handle *, sqlite3 *) { return 0; }
#define KSDB_DEFINE_NOTHING(function) \
    int function(ksdb_handle *, sqlite3 *) { return 0; }
#define KSDB_DEFINE_NOT_PROVIDED(function)                                      \
    int function(ksdb_handle *h, sqlite3 *) {                                   \
        return ksdb::logged(h, KSDB_TAG, #function, [] { return 0; });          \
    }

extern "C" {

#define KSDB_STEP_DEF(id, function, state, what) KSDB_DEFINE_##state(function)
#include "core/ksdb_steps.def"

}  // extern "C"

namespace ksdb::driver {

// A step with nothing to do is part of what the library provides.
#define KSDB_STATE_PROVIDED KSDB_STEP_PROVIDED
#define KSDB_STATE_NOTHING KSDB_STEP_PROVIDED
#define KSDB_STATE_PENDING KSDB_STEP_PENDING
#define KSDB_STATE_NOT_PROVIDED KSDB_STEP_NOT_PROVIDED

StepEntry g_steps[kStepCount] = {
#define KSDB_STEP_DEF(id, function, state, what) {#function, function, what, KSDB_STATE_##state},
#include "core/ksdb_steps.def"
};

}  // namespace ksdb::driver
