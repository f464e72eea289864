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

// Product data and network interfaces.
KSDB_PLACEHOLDER(ksdb_vpd_import)
KSDB_PLACEHOLDER(ksdb_vpd_export)
KSDB_PLACEHOLDER(ksdb_network_import)
KSDB_PLACEHOLDER(ksdb_network_export)

// NFS, AFP and rsync shares; iSCSI LUN shares; share file-system attributes.
KSDB_PLACEHOLDER(ksdb_nfs_share_import)
KSDB_PLACEHOLDER(ksdb_nfs_usb_share_import)
KSDB_PLACEHOLDER(ksdb_nfs_share_export)

// Cloud vault settings and the message dictionary.
KSDB_PLACEHOLDER(ksdb_vault_import)
KSDB_PLACEHOLDER(ksdb_vault_export)
KSDB_PLACEHOLDER(ksdb_dictionary_import)

// SSH, SNMP and anti-virus service files.
KSDB_PLACEHOLDER(ksdb_ssh_service_export)
KSDB_PLACEHOLDER(ksdb_snmp_service_export)
KSDB_PLACEHOLDER(ksdb_antivirus_service_export)
