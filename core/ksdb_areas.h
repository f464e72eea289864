// Entry points of the area modules, as the import/export driver calls them.
// Each takes the handle and the connection, runs inside the driver's
// transaction and returns a status; each ends with its own exit log.
//
// Where each is defined:
//   - in its area module (shares/, services/, accounts/, storage/);
//   - in core/ksdb_placeholders.cpp while its area is still being built;
//   - in core/ksdb_not_provided.cpp for the areas this library does not
//     provide (FTP and HTTP shares, USB storage, disks and enclosures, UPS,
//     media services, domain accounts, home-folder statistics).
#pragma once

#include "ksdb.h"

// ---- importers -----------------------------------------------------------
int ksdb_vpd_import(ksdb_handle *h, sqlite3 *db);
int ksdb_volume_import(ksdb_handle *h, sqlite3 *db);
int ksdb_disk_import(ksdb_handle *h, sqlite3 *db);
int ksdb_default_service_import(ksdb_handle *h, sqlite3 *db);
int ksdb_service_import(ksdb_handle *h, sqlite3 *db);
int ksdb_cifs_service_import(ksdb_handle *h, sqlite3 *db);
int ksdb_ftp_service_import(ksdb_handle *h, sqlite3 *db);
int ksdb_daap_service_import(ksdb_handle *h, sqlite3 *db);
int ksdb_replicate_service_import(ksdb_handle *h, sqlite3 *db);
int ksdb_account_import(ksdb_handle *h, sqlite3 *db);
// Told whether the driver holds a transaction around it.
int ksdb_ads_account_import(ksdb_handle *h, sqlite3 *db, int in_transaction);
int ksdb_usb_import(ksdb_handle *h, sqlite3 *db);
int ksdb_usb_hotplug_import(ksdb_handle *h, sqlite3 *db);
int ksdb_share_stats_import(ksdb_handle *h, sqlite3 *db);
int ksdb_zvol_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_cifs_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_cifs_usb_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_afp_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_afp_usb_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_nfs_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_nfs_usb_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_ftp_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_ftp_usb_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_http_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_http_usb_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_daap_share_import(ksdb_handle *h, sqlite3 *db);
int ksdb_dlna_import(ksdb_handle *h, sqlite3 *db);
int ksdb_rsync_import(ksdb_handle *h, sqlite3 *db);
int ksdb_rsync_usb_import(ksdb_handle *h, sqlite3 *db);
int ksdb_snapshot_import(ksdb_handle *h, sqlite3 *db);
int ksdb_backup_import(ksdb_handle *h, sqlite3 *db);
int ksdb_replisync_import(ksdb_handle *h, sqlite3 *db);
int ksdb_network_import(ksdb_handle *h, sqlite3 *db);
int ksdb_vault_import(ksdb_handle *h, sqlite3 *db);
int ksdb_tivo_import(ksdb_handle *h, sqlite3 *db);
int ksdb_dictionary_import(ksdb_handle *h, sqlite3 *db);
int ksdb_ups_import(ksdb_handle *h, sqlite3 *db);
int ksdb_local_ups_import(ksdb_handle *h, sqlite3 *db);
int ksdb_volume_schedule_import(ksdb_handle *h, sqlite3 *db);
int ksdb_hf_stats_import(ksdb_handle *h, sqlite3 *db);
int ksdb_authorized_ssh_public_key_import(ksdb_handle *h, sqlite3 *db);
int ksdb_share_fs_attribute_import(ksdb_handle *h, sqlite3 *db);
int ksdb_replisync_key_import(ksdb_handle *h, sqlite3 *db);

// ---- exporters -----------------------------------------------------------
int ksdb_vpd_export(ksdb_handle *h, sqlite3 *db);
int ksdb_default_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_cifs_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_afp_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_nfs_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_ftp_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_http_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_media_server_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_daap_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_snmp_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_ssh_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_replicate_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_antivirus_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_volume_export(ksdb_handle *h, sqlite3 *db);
int ksdb_disk_export(ksdb_handle *h, sqlite3 *db);
int _ksdb_account_local_user_export(ksdb_handle *h, sqlite3 *db);
int _ksdb_usb_storage_export(ksdb_handle *h, sqlite3 *db);
int ksdb_zvol_share_export(ksdb_handle *h, sqlite3 *db);
int ksdb_cifs_share_export(ksdb_handle *h, sqlite3 *db);
int _ksdb_afp_share_usb_share_export(ksdb_handle *h, sqlite3 *db);
int ksdb_nfs_share_export(ksdb_handle *h, sqlite3 *db);
int ksdb_ftp_share_export(ksdb_handle *h, sqlite3 *db);
int ksdb_http_share_export(ksdb_handle *h, sqlite3 *db);
int ksdb_dlna_export(ksdb_handle *h, sqlite3 *db);
int ksdb_daap_export(ksdb_handle *h, sqlite3 *db);
int ksdb_rsync_export(ksdb_handle *h, sqlite3 *db);
int ksdb_snapshot_export(ksdb_handle *h, sqlite3 *db);
int ksdb_backup_export(ksdb_handle *h, sqlite3 *db);
int ksdb_replisync_export(ksdb_handle *h, sqlite3 *db);
int ksdb_network_export(ksdb_handle *h, sqlite3 *db);
int ksdb_service_switch_export(ksdb_handle *h, sqlite3 *db);
int ksdb_vault_export(ksdb_handle *h, sqlite3 *db);
int ksdb_tivo_export(ksdb_handle *h, sqlite3 *db);
int ksdb_ups_service_export(ksdb_handle *h, sqlite3 *db);
int ksdb_ups_export(ksdb_handle *h, sqlite3 *db);
int ksdb_volume_schedule_export(ksdb_handle *h, sqlite3 *db);
int ksdb_authorized_ssh_public_key_export(ksdb_handle *h, sqlite3 *db);
int ksdb_share_fs_attribute_export(ksdb_handle *h, sqlite3 *db);
int ksdb_share_fs_attribute_export_per_share(ksdb_handle *h, sqlite3 *db, const char *share);
int ksdb_replisync_key_export(ksdb_handle *h, sqlite3 *db);
