// Areas this library does not provide.  The appliance handles them with
// other components; the driver's chains still name their steps, and each
// step here succeeds without doing anything (it only writes its exit log).
//
//   FTP shares and HTTP/WebDAV shares (share files and options)
//   USB storage devices (import, hot-plug, the USB storage file)
//   disks, enclosures and their port layouts
//   UPS configuration
//   media services: DLNA, DAAP, TiVo
//   domain (Active Directory) accounts
//   home-folder statistics
//   the AFP and HTTP/HTTPS service files
//   volumes are never written from the database: the storage tools create
//   them, so the volume category has nothing to export
#define KSDB_MODULE "ksdb_not_provided"
#include "core/ksdb_areas.h"
#include "core/ksdb_internal.h"

#include "core/ksdb_driver.h"

#define KSDB_NOT_PROVIDED(name)                                                                \
    int name(ksdb_handle *h, sqlite3 *) {                                                      \
        return ksdb::logged(h, KSDB_TAG, #name, [] { return 0; });                              \
    }                                                                                          \
    static const ksdb::driver::StepStateRegistration name##_state(#name, KSDB_STEP_NOT_PROVIDED);

KSDB_NOT_PROVIDED(ksdb_ftp_share_import)
KSDB_NOT_PROVIDED(ksdb_ftp_usb_share_import)
KSDB_NOT_PROVIDED(ksdb_ftp_share_export)
KSDB_NOT_PROVIDED(ksdb_http_share_import)
KSDB_NOT_PROVIDED(ksdb_http_usb_share_import)
KSDB_NOT_PROVIDED(ksdb_http_share_export)

KSDB_NOT_PROVIDED(ksdb_usb_import)
KSDB_NOT_PROVIDED(ksdb_usb_hotplug_import)
KSDB_NOT_PROVIDED(_ksdb_usb_storage_export)

KSDB_NOT_PROVIDED(ksdb_disk_import)
KSDB_NOT_PROVIDED(ksdb_disk_export)

KSDB_NOT_PROVIDED(ksdb_ups_import)
KSDB_NOT_PROVIDED(ksdb_local_ups_import)
KSDB_NOT_PROVIDED(ksdb_ups_export)
KSDB_NOT_PROVIDED(ksdb_ups_service_export)

KSDB_NOT_PROVIDED(ksdb_dlna_import)
KSDB_NOT_PROVIDED(ksdb_dlna_export)
KSDB_NOT_PROVIDED(ksdb_daap_share_import)
KSDB_NOT_PROVIDED(ksdb_daap_export)
KSDB_NOT_PROVIDED(ksdb_daap_service_export)
KSDB_NOT_PROVIDED(ksdb_media_server_service_export)
KSDB_NOT_PROVIDED(ksdb_tivo_import)
KSDB_NOT_PROVIDED(ksdb_tivo_export)

KSDB_NOT_PROVIDED(ksdb_hf_stats_import)

KSDB_NOT_PROVIDED(ksdb_afp_service_export)
KSDB_NOT_PROVIDED(ksdb_http_service_export)

KSDB_NOT_PROVIDED(ksdb_volume_export)

int ksdb_ads_account_import(ksdb_handle *h, sqlite3 *, int) {
    return ksdb::logged(h, KSDB_TAG, "ksdb_ads_account_import", [] { return 0; });
}
static const ksdb::driver::StepStateRegistration ads_state("ksdb_ads_account_import",
                                                           KSDB_STEP_NOT_PROVIDED);
