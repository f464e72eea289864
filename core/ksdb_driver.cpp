// The import/export driver: runs a category's plan (core/ksdb_plans.cpp) in
// one transaction, or inside the caller's (the _nolock forms), the
// per-share export, and the description of the plans for callers
// (ksdb_category_steps), made from the same tables as the runs.
#define KSDB_MODULE "ksdb_api"
#include "core/ksdb_internal.h"

#include "core/ksdb_areas.h"
#include "core/ksdb_driver.h"
#include "core/ksdb_signal.h"

#include <unistd.h>

#include <atomic>
#include <vector>

namespace ksdb::driver {

namespace {

thread_local bool t_in_transaction = false;

void sync_disks() { ::sync(); }
std::atomic<SyncFn> g_sync{sync_disks};

// Marks the calling thread as running steps inside the driver's own
// transaction, and restores what it was (a nested run on another
// connection) on every way out.
class InTransaction {
  public:
    InTransaction() : outer_(t_in_transaction) { t_in_transaction = true; }
    ~InTransaction() { t_in_transaction = outer_; }
    InTransaction(const InTransaction &) = delete;
    InTransaction &operator=(const InTransaction &) = delete;

  private:
    bool outer_;
};

enum class Direction { kImport, kExport };

const Plan &plan_of(int category, Direction d) {
    const CategoryPlan &cp = kCategoryPlans[category];
    return d == Direction::kImport ? cp.import_plan : cp.export_plan;
}

bool valid_category(int category) { return category >= 0 && category < KSDB_CATEGORY_COUNT; }

void notify(const char *name, int phase, int status) {
    const ksdb_observer *obs = current_observer();
    if (obs && obs->step) obs->step(obs->arg, name, phase, status);
}

// One step, inside the C boundary: an exception it lets out is its failure
// (status 5 and an error line naming it).
int run_step(ksdb_handle *h, sqlite3 *db, Step s) {
    const StepEntry &e = g_steps[s];
    notify(e.name, 0, 0);
    int rc = boundary(h, KSDB_TAG, e.name, [&] { return e.fn(h, db); });
    notify(e.name, 1, rc);
    return rc;
}

int run_plan(ksdb_handle *h, sqlite3 *db, int category, Direction d);

int run_sequence(ksdb_handle *h, sqlite3 *db, const Sequence &seq, Direction d) {
    if (seq.banner) KSDB_INFO(h, "%s", seq.banner);
    int first_failure = 0;
    int last = 0;
    for (int i = 0; i < seq.count; ++i) {
        const Item &item = seq.items[i];
        if (first_failure != 0 && !item.always) continue;
        last = item.nested >= 0 ? run_plan(h, db, item.nested, d) : run_step(h, db, item.step);
        if (last == 0) continue;
        if (item.failure) KSDB_ERR(h, "%s", item.failure);
        if (first_failure == 0) first_failure = last;
    }
    if (seq.sync) g_sync.load()();
    switch (seq.result) {
    case Result::kOne: return first_failure != 0 ? KSDB_E_STEP : 0;
    case Result::kFailingOwn: return first_failure;
    case Result::kLastItem: return last;
    }
    return KSDB_E_INVAL;
}

int run_plan(ksdb_handle *h, sqlite3 *db, int category, Direction d) {
    const Plan &p = plan_of(category, d);
    switch (p.kind) {
    case PlanKind::kNothing: return 0;
    case PlanKind::kStep: return run_step(h, db, p.step);
    case PlanKind::kSequence: return run_sequence(h, db, *p.seq, d);
    case PlanKind::kNotExportable: return KSDB_E_INVAL;
    }
    return KSDB_E_INVAL;
}

// The transaction frame shared by import and export.
int in_transaction(ksdb_handle *h, sqlite3 *db, int category, Direction d) {
    Transaction tx(h, db, KSDB_TAG);
    if (!tx.ok()) return KSDB_E_DB;
    if (!valid_category(category)) return KSDB_E_INVAL;  // rolled back
    int rc;
    {
        InTransaction flag;
        rc = run_plan(h, db, category, d);
    }
    if (rc != 0) return rc;  // rolled back
    return tx.commit() == SQLITE_OK ? 0 : KSDB_E_DB;
}

int without_transaction(ksdb_handle *h, sqlite3 *db, int category, Direction d) {
    if (!valid_category(category)) return KSDB_E_INVAL;
    return run_plan(h, db, category, d);
}

// Every step a plan runs, nested categories flattened, in order.
void describe(int category, Direction d, std::vector<Step> *out) {
    const Plan &p = plan_of(category, d);
    switch (p.kind) {
    case PlanKind::kNothing:
    case PlanKind::kNotExportable: return;
    case PlanKind::kStep: out->push_back(p.step); return;
    case PlanKind::kSequence:
        for (int i = 0; i < p.seq->count; ++i) {
            const Item &item = p.seq->items[i];
            if (item.nested >= 0)
                describe(item.nested, d, out);
            else
                out->push_back(item.step);
        }
        return;
    }
}

int per_share_export(ksdb_handle *h, sqlite3 *db, int category, const char *share) {
    int rc;
    {
        Transaction tx(h, db, KSDB_TAG);
        if (!tx.ok()) return KSDB_E_DB;
        rc = category == KSDB_CAT_SHARE_FS_ATTRIBUTE
                 ? ksdb_share_fs_attribute_export_per_share(h, db, share)
                 : KSDB_E_INVAL;
        if (rc == 0 && tx.commit() != SQLITE_OK) rc = KSDB_E_DB;
    }
    g_sync.load()();
    return rc;
}

}  // namespace

bool in_driver_transaction() { return t_in_transaction; }

SyncFn set_sync(SyncFn fn) { return g_sync.exchange(fn ? fn : sync_disks); }

}  // namespace ksdb::driver

extern "C" {

int ksdb_category_steps(int category, int direction, ksdb_step_info *steps, int max) {
    using namespace ksdb::driver;
    return ksdb::boundary_value(nullptr, KSDB_TAG, "ksdb_category_steps", -1, [&] {
        if (!valid_category(category) || (direction != 0 && direction != 1)) return -1;
        const Direction d = direction == 0 ? Direction::kImport : Direction::kExport;
        if (plan_of(category, d).kind == PlanKind::kNotExportable)
            return KSDB_STEPS_NOT_EXPORTABLE;
        std::vector<Step> flat;
        describe(category, d, &flat);
        for (size_t i = 0; i < flat.size() && steps && static_cast<int>(i) < max; ++i) {
            const StepEntry &e = g_steps[flat[i]];
            steps[i] = ksdb_step_info{e.name, e.what, e.state};
        }
        return static_cast<int>(flat.size());
    });
}

int ksdb_import(ksdb_handle *h, sqlite3 *db, int category) {
    KSDB_FAULT_GUARD(h);
    return ksdb::logged(h, KSDB_TAG, "ksdb_import", [&] {
        return ksdb::driver::in_transaction(h, db, category, ksdb::driver::Direction::kImport);
    });
}

int ksdb_export(ksdb_handle *h, sqlite3 *db, int category) {
    KSDB_FAULT_GUARD(h);
    return ksdb::logged(h, KSDB_TAG, "ksdb_export", [&] {
        return ksdb::driver::in_transaction(h, db, category, ksdb::driver::Direction::kExport);
    });
}

int ksdb_import_nolock(ksdb_handle *h, sqlite3 *db, int category) {
    KSDB_FAULT_GUARD(h);
    return ksdb::logged(h, KSDB_TAG, "ksdb_import_nolock", [&] {
        return ksdb::driver::without_transaction(h, db, category,
                                                 ksdb::driver::Direction::kImport);
    });
}

int ksdb_export_nolock(ksdb_handle *h, sqlite3 *db, int category) {
    KSDB_FAULT_GUARD(h);
    return ksdb::logged(h, KSDB_TAG, "ksdb_export_nolock", [&] {
        return ksdb::driver::without_transaction(h, db, category,
                                                 ksdb::driver::Direction::kExport);
    });
}

// No exit log of its own.
int ksdb_export_per_share(ksdb_handle *h, sqlite3 *db, int category, const char *share) {
    return ksdb::boundary(h, KSDB_TAG, "ksdb_export_per_share", [&] {
        return ksdb::driver::per_share_export(h, db, category, share);
    });
}

}  // extern "C"
