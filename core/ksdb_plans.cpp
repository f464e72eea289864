// What each category runs, in each direction: the plan table and the
// sequences of the composite categories, as data.  The driver runs these
// and describes them from the same tables.
#define KSDB_MODULE "ksdb_api"
#include "core/ksdb_internal.h"

#include "core/ksdb_driver.h"

namespace ksdb::driver {
namespace {

constexpr Item step(Step s, const char *failure = nullptr) {
    return Item{s, -1, false, failure};
}
constexpr Item nested(int category) { return Item{kVpdImport, category, false, nullptr}; }

template <size_t N>
constexpr Sequence sequence(const Item (&items)[N], Result result, bool sync = false,
                            const char *banner = nullptr) {
    return Sequence{items, static_cast<int>(N), result, sync, banner};
}

// ---- import ------------------------------------------------------------------------

constexpr Item kAllServiceImport[] = {
    step(kDefaultServiceImport), step(kCifsServiceImport), step(kAfpServiceImport),
    step(kNfsServiceImport),     step(kFtpServiceImport),  step(kHttpServiceImport),
    step(kEmptyServiceImport),   step(kDaapServiceImport), step(kSnmpServiceImport),
    step(kSshServiceImport),     step(kReplicateServiceImport),
};
constexpr Item kAllShareImport[] = {
    step(kZvolShareImport), step(kCifsShareImport), step(kAfpShareImport),
    step(kNfsShareImport),  step(kDaapShareImport), step(kRsyncImport),
    step(kFtpShareImport),  step(kHttpShareImport), step(kSnapshotImport),
};
// After a USB disk is plugged in or removed.
constexpr Item kHotplugUsbImport[] = {
    step(kUsbHotplugImport),  step(kUsbStorageExport),   step(kCifsUsbShareImport),
    step(kAfpUsbShareImport), step(kNfsUsbShareImport),  step(kFtpUsbShareImport),
    step(kHttpUsbShareImport), step(kRsyncUsbImport),    step(kDaapShareImport),
    step(kDlnaImport),
};
constexpr Item kVolumeChainImport[] = {step(kVolumeImport), step(kAccountImport)};
// The ALL import: the first failure stops it and its own result is kept;
// the last four steps name their failure in the log.
constexpr Item kAllImport[] = {
    step(kVpdImport),
    step(kVolumeImport),
    step(kDiskImport),
    nested(KSDB_CAT_ALL_SERVICE),
    step(kAccountImport),
    step(kUsbImport),
    nested(KSDB_CAT_ALL_SHARE),
    step(kBackupImport),
    step(kReplisyncImport),
    step(kNetworkImport),
    step(kVaultImport),
    step(kTivoImport),
    step(kDictionaryImport),
    step(kDlnaImport),
    step(kUpsImport),
    step(kVolumeScheduleImport),
    step(kAuthorizedKeyImport, "Failed to import authorized ssh public key!\n"),
    step(kShareFsAttributeImport, "Failed to import share fs attribute!\n"),
    step(kShareStatsImport, "Failed to import share stats!\n"),
    step(kReplisyncKeyImport, "Failed to import authorized replisync key!\n"),
};

constexpr Sequence kAllServiceImportSeq = sequence(kAllServiceImport, Result::kOne);
constexpr Sequence kAllShareImportSeq = sequence(kAllShareImport, Result::kOne);
constexpr Sequence kHotplugUsbImportSeq = sequence(kHotplugUsbImport, Result::kOne);
constexpr Sequence kVolumeImportSeq = sequence(kVolumeChainImport, Result::kOne);
constexpr Sequence kAllImportSeq = sequence(kAllImport, Result::kFailingOwn, true);

// ---- export ------------------------------------------------------------------------

constexpr Item kAllServiceExport[] = {
    step(kDefaultServiceExport), step(kDlnaExport),          step(kCifsServiceExport),
    step(kAfpServiceExport),     step(kNfsServiceExport),    step(kFtpServiceExport),
    step(kHttpServiceExport),    step(kMediaServerServiceExport), step(kDaapServiceExport),
    step(kSnmpServiceExport),    step(kAntivirusServiceExport), step(kSshServiceExport),
};
constexpr Item kAllShareExport[] = {
    step(kZvolShareExport), step(kCifsShareExport), step(kAfpShareUsbShareExport),
    step(kDlnaExport),      step(kNfsShareExport),  step(kDaapExport),
    step(kRsyncExport),     step(kFtpShareExport),  step(kHttpShareExport),
    step(kSnapshotExport),
};
// The ALL export.  The first failure skips the items after it (it is
// reported by its own exit log only), so the anti-virus exporter runs only
// when everything before it succeeded; the SSH-key exporter always runs and
// its result alone is the result of the run.
constexpr Item kAllExport[] = {
    step(kVpdExport),
    nested(KSDB_CAT_ALL_SERVICE),
    step(kVolumeExport),
    step(kAccountLocalUserExport),
    step(kUsbStorageExport),
    nested(KSDB_CAT_ALL_SHARE),
    step(kRsyncExport),
    step(kBackupExport),
    step(kNetworkExport),
    step(kVaultExport),
    step(kTivoExport),
    step(kUpsExport),
    step(kAntivirusServiceExport),
    Item{kAuthorizedKeyExport, -1, true, "Failed to export authorized ssh public key!\n"},
};

constexpr Sequence kAllServiceExportSeq = sequence(kAllServiceExport, Result::kOne, true);
constexpr Sequence kAllShareExportSeq = sequence(kAllShareExport, Result::kOne, true);
constexpr Sequence kAllExportSeq =
    sequence(kAllExport, Result::kLastItem, true, "_ksdb_all_export\n");

// ---- plans ---------------------------------------------------------------------------

constexpr Plan one(Step s) { return Plan{PlanKind::kStep, s, nullptr}; }
constexpr Plan seq(const Sequence &s) { return Plan{PlanKind::kSequence, kVpdImport, &s}; }
constexpr Plan kNothing{PlanKind::kNothing, kVpdImport, nullptr};
constexpr Plan kNotExportable{PlanKind::kNotExportable, kVpdImport, nullptr};

}  // namespace

// Import, then export, of every category.
const CategoryPlan kCategoryPlans[KSDB_CATEGORY_COUNT] = {
    /* 0 NONE */ {kNothing, kNothing},
    /* 1 ALL */ {seq(kAllImportSeq), seq(kAllExportSeq)},
    /* 2 VPD */ {one(kVpdImport), one(kVpdExport)},
    /* 3 ALL_SERVICE */ {seq(kAllServiceImportSeq), seq(kAllServiceExportSeq)},
    /* 4 DEFAULT_SERVICE */ {one(kDefaultServiceImport), one(kDefaultServiceExport)},
    /* 5 CIFS_SERVICE */ {one(kCifsServiceImport), one(kCifsServiceExport)},
    /* 6 AFP_SERVICE */ {one(kAfpServiceImport), one(kAfpServiceExport)},
    /* 7 NFS_SERVICE */ {one(kNfsServiceImport), one(kNfsServiceExport)},
    /* 8 FTP_SERVICE */ {one(kFtpServiceImport), one(kFtpServiceExport)},
    /* 9 HTTP_SERVICE */ {one(kHttpServiceImport), one(kHttpServiceExport)},
    /* 10 SNMP_SERVICE */ {one(kSnmpServiceImport), one(kSnmpServiceExport)},
    /* 11 SSH_SERVICE */ {one(kSshServiceImport), one(kSshServiceExport)},
    /* 12 REPLICATE_SERVICE */ {one(kReplicateServiceImport), one(kReplicateServiceExport)},
    /* 13 VOLUME */ {seq(kVolumeImportSeq), one(kVolumeExport)},
    /* 14 DISK */ {one(kDiskImport), one(kDiskExport)},
    /* 15 ACCOUNT */ {one(kAccountImport), one(kAccountLocalUserExport)},
    /* 16 ADS_ACCOUNT */ {one(kAdsAccountImport), kNotExportable},
    /* 17 USB */ {one(kUsbImport), one(kUsbStorageExport)},
    /* 18 SHARE_STATS */ {one(kShareStatsImport), kNothing},
    /* 19 ALL_SHARE */ {seq(kAllShareImportSeq), seq(kAllShareExportSeq)},
    /* 20 ZVOL_SHARE */ {one(kZvolShareImport), one(kZvolShareExport)},
    /* 21 CIFS_SHARE */ {one(kCifsShareImport), one(kCifsShareExport)},
    /* 22 AFP_SHARE */ {one(kAfpShareImport), one(kAfpShareUsbShareExport)},
    /* 23 NFS_SHARE */ {one(kNfsShareImport), one(kNfsShareExport)},
    /* 24 FTP_SHARE */ {one(kFtpShareImport), one(kFtpShareExport)},
    /* 25 HTTP_SHARE */ {one(kHttpShareImport), one(kHttpShareExport)},
    /* 26 DLNA */ {one(kDlnaImport), one(kDlnaExport)},
    /* 27 RSYNC */ {one(kRsyncImport), one(kRsyncExport)},
    /* 28 SNAPSHOT */ {one(kSnapshotImport), one(kSnapshotExport)},
    /* 29 BACKUP */ {one(kBackupImport), one(kBackupExport)},
    /* 30 REPLISYNC */ {one(kReplisyncImport), one(kReplisyncExport)},
    /* 31 NETWORK */ {one(kNetworkImport), one(kNetworkExport)},
    /* 32 SERVICE */ {one(kServiceImport), one(kServiceSwitchExport)},
    /* 33 AVAHI_SERVICE */ {kNothing, kNothing},
    /* 34 VAULT_SETTINGS */ {one(kVaultImport), one(kVaultExport)},
    /* 35 TIVO_SETTINGS */ {one(kTivoImport), one(kTivoExport)},
    /* 36 UPS_SERVICE */ {one(kDefaultServiceImport), one(kUpsServiceExport)},
    /* 37 ANTIVIRUS_SERVICE */ {kNothing, one(kAntivirusServiceExport)},
    /* 38 DICTIONARY */ {one(kDictionaryImport), kNotExportable},
    /* 39 UPS */ {one(kUpsImport), one(kUpsExport)},
    /* 40 LOCAL_UPS */ {one(kLocalUpsImport), kNotExportable},
    /* 41 HOTPLUG_USB */ {seq(kHotplugUsbImportSeq), kNotExportable},
    /* 42 VOLUME_SCHEDULE */ {one(kVolumeScheduleImport), one(kVolumeScheduleExport)},
    /* 43 HF_STATS */ {one(kHfStatsImport), kNothing},
    /* 44 AUTHORIZED_SSH_PUBLIC_KEY */ {one(kAuthorizedKeyImport), one(kAuthorizedKeyExport)},
    /* 45 SHARE_FS_ATTRIBUTE */ {one(kShareFsAttributeImport), one(kShareFsAttributeExport)},
    /* 46 REPLISYNC_KEY */ {one(kReplisyncKeyImport), one(kReplisyncKeyExport)},
};

}  // namespace ksdb::driver
