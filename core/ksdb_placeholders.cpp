// Entry points of areas that are still being built.  Each returns 0 so that
// the driver's chains run; every line here is work still to do, and each
// area removes its lines when it lands.
#define KSDB_MODULE "ksdb_placeholders"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"

#include "core/ksdb_driver.h"

#define KSDB_PLACEHOLDER(name)                            \
    int name(ksdb_handle *, sqlite3 *) { return 0; }      \
    static const ksdb::driver::StepStateRegistration name##_state(#name, KSDB_STEP_PENDING);

// NFS, AFP and rsync shares; iSCSI LUN shares; share file-system attributes.
KSDB_PLACEHOLDER(ksdb_nfs_share_import)
KSDB_PLACEHOLDER(ksdb_nfs_usb_share_import)
KSDB_PLACEHOLDER(ksdb_nfs_share_export)
KSDB_PLACEHOLDER(ksdb_afp_share_import)
KSDB_PLACEHOLDER(ksdb_afp_usb_share_import)
KSDB_PLACEHOLDER(_ksdb_afp_share_usb_share_export)
KSDB_PLACEHOLDER(ksdb_rsync_import)
KSDB_PLACEHOLDER(ksdb_rsync_usb_import)
KSDB_PLACEHOLDER(ksdb_rsync_export)

// SSH, SNMP and anti-virus service files.
KSDB_PLACEHOLDER(ksdb_ssh_service_export)
KSDB_PLACEHOLDER(ksdb_snmp_service_export)
KSDB_PLACEHOLDER(ksdb_antivirus_service_export)
