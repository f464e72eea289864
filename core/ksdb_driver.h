// The import/export driver's steps and the category table.
//
// Every importer and exporter the driver can run is a Step; the table of
// steps holds its name (for progress reports) and its function.  The plans
// of the 47 categories (a single step, a chain of steps, nothing, or "not
// exportable") are one table indexed by category, used by both directions.
#pragma once

#include "ksdb.h"

namespace ksdb::driver {

using StepFn = int (*)(ksdb_handle *h, sqlite3 *db);

enum Step : int {
    // importers
    kVpdImport,
    kVolumeImport,
    kDiskImport,
    kDefaultServiceImport,
    kServiceImport,
    kCifsServiceImport,
    kAfpServiceImport,
    kNfsServiceImport,
    kFtpServiceImport,
    kHttpServiceImport,
    kEmptyServiceImport,
    kDaapServiceImport,
    kSnmpServiceImport,
    kSshServiceImport,
    kReplicateServiceImport,
    kAccountImport,
    kAdsAccountImport,
    kUsbImport,
    kUsbHotplugImport,
    kShareStatsImport,
    kZvolShareImport,
    kCifsShareImport,
    kCifsUsbShareImport,
    kAfpShareImport,
    kAfpUsbShareImport,
    kNfsShareImport,
    kNfsUsbShareImport,
    kFtpShareImport,
    kFtpUsbShareImport,
    kHttpShareImport,
    kHttpUsbShareImport,
    kDaapShareImport,
    kDlnaImport,
    kRsyncImport,
    kRsyncUsbImport,
    kSnapshotImport,
    kBackupImport,
    kReplisyncImport,
    kNetworkImport,
    kVaultImport,
    kTivoImport,
    kDictionaryImport,
    kUpsImport,
    kLocalUpsImport,
    kVolumeScheduleImport,
    kHfStatsImport,
    kAuthorizedKeyImport,
    kShareFsAttributeImport,
    kReplisyncKeyImport,
    // exporters
    kVpdExport,
    kDefaultServiceExport,
    kCifsServiceExport,
    kAfpServiceExport,
    kNfsServiceExport,
    kFtpServiceExport,
    kHttpServiceExport,
    kMediaServerServiceExport,
    kDaapServiceExport,
    kSnmpServiceExport,
    kSshServiceExport,
    kReplicateServiceExport,
    kAntivirusServiceExport,
    kVolumeExport,
    kDiskExport,
    kAccountLocalUserExport,
    kUsbStorageExport,
    kZvolShareExport,
    kCifsShareExport,
    kAfpShareUsbShareExport,
    kNfsShareExport,
    kFtpShareExport,
    kHttpShareExport,
    kDlnaExport,
    kDaapExport,
    kRsyncExport,
    kSnapshotExport,
    kBackupExport,
    kReplisyncExport,
    kNetworkExport,
    kServiceSwitchExport,
    kVaultExport,
    kTivoExport,
    kUpsServiceExport,
    kUpsExport,
    kVolumeScheduleExport,
    kAuthorizedKeyExport,
    kShareFsAttributeExport,
    kReplisyncKeyExport,
    kStepCount
};

struct StepEntry {
    const char *name;
    StepFn fn;
    const char *what;  // for ksdb_category_steps
};

// The state of a step's area (KSDB_STEP_*): provided unless its entry
// point registered itself as pending or not provided.
int step_state(const char *name);
struct StepStateRegistration {
    StepStateRegistration(const char *name, int state);
};

// The step table.  Tests replace entries with doubles (and put them back).
extern StepEntry g_steps[kStepCount];

// True while the calling thread runs a step inside the driver's own
// transaction (the domain-account importer is told so).
bool in_driver_transaction();

// What a category runs in one direction.
enum class PlanKind {
    kNothing,        // nothing; 0
    kStep,           // one step; its result
    kChain,          // a chain; the first failure stops it and gives 1
    kNotExportable,  // 4
    kAll,            // the ALL run, with its own rules
};

struct Plan {
    PlanKind kind;
    Step step;            // kStep
    const Step *chain;    // kChain: the steps in order
    int chain_len;
    bool nested_sync;     // kChain on export: sync() before returning
};

struct CategoryPlan {
    Plan import_plan;
    Plan export_plan;
};

// Indexed by category, 0 .. KSDB_CATEGORY_COUNT - 1.
extern const CategoryPlan kCategoryPlans[KSDB_CATEGORY_COUNT];

// Steps of the chains, for tests that assert the exact order.
struct Chain {
    const Step *steps;
    int len;
};
Chain import_chain(int category);  // empty for categories without a chain
Chain export_chain(int category);

}  // namespace ksdb::driver
