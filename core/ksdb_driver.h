// The import/export driver's steps and plans.
//
// Every importer and exporter the driver can run is a Step of the step list
// (core/ksdb_steps.def); the step table holds its name, function, short
// description and state.  What a category runs in each direction is its
// Plan: nothing, one step, "not exportable", or a Sequence of steps and
// nested categories with its own result rule.  The plans are data
// (core/ksdb_plans.cpp); the driver (core/ksdb_driver.cpp) both runs them
// and describes them (ksdb_category_steps), so every order is written once.
#pragma once

#include "ksdb.h"

namespace ksdb::driver {

using StepFn = int (*)(ksdb_handle *h, sqlite3 *db);

enum Step : int {
#define KSDB_STEP_DEF(id, function, state, what) k##id,
#include "core/ksdb_steps.def"
    kStepCount
};

struct StepEntry {
    const char *name;  // the function's name, for progress reports
    StepFn fn;
    const char *what;  // for ksdb_category_steps
    int state;         // KSDB_STEP_*
};

// The step table, indexed by Step.  Tests replace entries with doubles (and
// put them back).
extern StepEntry g_steps[kStepCount];

// True while the calling thread runs a step inside the driver's own
// transaction (the domain-account importer may ask).
bool in_driver_transaction();

// The sync() the driver calls after export chains, the ALL runs and the
// per-share export.  Tests install a counter; returns the previous one.
using SyncFn = void (*)();
SyncFn set_sync(SyncFn fn);

// One item of a sequence: a step, or the plan of another category run in
// the same direction without a transaction of its own.
struct Item {
    Step step;            // when nested < 0
    int nested;           // a category, or -1
    bool always;          // runs even after an earlier item failed
    const char *failure;  // logged at error level when it fails, or NULL
};

// What a sequence returns.
enum class Result {
    kOne,            // 1 at the first failure, which stops it; else 0
    kFailingOwn,     // the first failing item's own result, which stops it
    kLastItem,       // the last item's result alone (an item that always runs)
};

struct Sequence {
    const Item *items;
    int count;
    Result result;
    bool sync;           // sync() before returning
    const char *banner;  // logged at info level before the first item, or NULL
};

enum class PlanKind { kNothing, kStep, kSequence, kNotExportable };

struct Plan {
    PlanKind kind;
    Step step;            // kStep
    const Sequence *seq;  // kSequence
};

struct CategoryPlan {
    Plan import_plan;
    Plan export_plan;
};

// Indexed by category, 0 .. KSDB_CATEGORY_COUNT - 1.
extern const CategoryPlan kCategoryPlans[KSDB_CATEGORY_COUNT];

}  // namespace ksdb::driver
