// The schema of the configuration database: the creation list (every table
// and index, in catalogue order) and the upgrade steps from each older
// schema version.  Data only; ksdb_create in ksdb_schema_run.cpp runs the lists.
//
// Kinds of table, by the first character of the name:
//   "$"  stored:  CREATE TABLE IF NOT EXISTS, keeps its rows across runs;
//   ""   mirror:  dropped and re-created empty on every run;
//   "_"  scratch: a TEMPORARY table, dropped and re-created on every run.
//
// Tables whose columns this library designed itself, for areas whose code
// lives elsewhere, with the statements each one serves:
//   `http_share_option`, `ftp_share_option`: one row per share exported over
//       HTTP/FTP, keyed by share_id with `available` and the protocol's
//       default access word (`http_access`, `ftp_access`), as the CIFS, NFS
//       and AFP option tables; the explicit entries live in user_acl,
//       group_acl and host_acl with proto 'http'/'ftp'.  They serve
//       INSERT OR IGNORE INTO ftp_share_option (share_id,ftp_access) ... and
//       SELECT ... FROM ftp_share_option FTP INNER JOIN share S ON
//       S.id=FTP.share_id (likewise for http).
//   `dlna_share_option`, `daap_share_option`: the shares published by the
//       media servers, keyed by share_id with `available`; media servers
//       only read, so there is no access word.
//   `usb_storage`: the share writer resolves a USB share's device with
//       UPDATE share SET ...,usb_storage_id=(SELECT U.id FROM usb_storage U
//       WHERE '/USB/'||U.name=%Q),... WHERE name=%Q; `usb_port`: the ports a
//       `usb_storage` row can sit on (usb_storage.usb_port_id).
//   `$disk_info`: one row per disk ever seen, keyed by the id that
//       `$volume_spares`.`disk_info_id` refers to; `disk_port`, `jbod_port`,
//       `disk_enclosure`, `enclosure_health_spec`, `_disk_health`,
//       `_enclosure_health`, `_disk_enclosure`: the disk and enclosure
//       layout and health, written and read only by the disk area.
//   `ups_config`, `_ups_config`, `_ups_health`: the configured UPS units,
//       the locally detected ones and their live state (UPS area).
//   `tivo_mak`: media access keys of the TiVo devices (media area).
//   `_ads_importer`: the progress record of the domain-account import; the
//       account import resets it with DELETE FROM `_ads_importer`;INSERT INTO
//       `_ads_importer` (state,total_group,curr_group,total_user,curr_user,
//       start_at,done_at) VALUES(0,0,0,0,0,0,0);
//   `$home_folder`: per-user home-folder settings; the account export reads
//       SELECT U.home,H.quota,U.uname,H.snapshot_protection_enabled,
//       H.visible_snapdir,H.prev_versions FROM `$home_folder` H,`$user` U
//       WHERE H.user_id=U.id, the account import removes domain users' rows
//       with DELETE FROM `$home_folder` WHERE EXISTS(SELECT 1 FROM `$user` U
//       WHERE user_id=U.id AND U.rid IS NOT NULL), and upgrade step 20 copies
//       user_id,snapshot_protection_enabled,quota,visible_snapdir into the
//       shape that adds prev_versions.
//   `$home_folder_snapshot`: snapshots of home folders; upgrade step 16
//       copies id,user_name,home_dir,name,type,created_on into the shape
//       that adds `used`.
//   `$home_folder_snapshot_schedule`: per-user snapshot schedule, in the
//       fields of snapshot_schedule.
//   `$timemachine_quota`: per-user Time Machine quota in MiB.
//   `_hf_zfs_stat`: per-user home-folder usage ("used" and
//       "usedbysnapshots"), filled after each imported local user.
//   `_user_quota_stat`, `_group_quota_stat`: per-share usage of each user
//       and group with a quota (user_quota, group_quota).
#include "core/ksdb_schema.h"

namespace ksdb::schema {
namespace {

// ---- shapes shared by the creation list and the upgrade steps ------------

#define KSDB_USER_COLUMNS_HEAD(uname_collation)                                          \
    " ( `id` INT NOT NULL, `uname` VARCHAR(45) NOT NULL COLLATE " uname_collation        \
    ", `passwd` VARCHAR(45) NULL COLLATE NOCASE, `fullname` VARCHAR(45) NULL COLLATE "  \
    "NOCASE, `email` VARCHAR(255) NULL COLLATE NOCASE, `home` VARCHAR(45) NULL COLLATE " \
    "NOCASE, `group_id` INT NULL, `shell` VARCHAR(45) NULL COLLATE NOCASE, "            \
    "`is_privileged` TINYINT(1) NOT NULL, `last_changed` VARCHAR(45) NULL COLLATE "      \
    "NOCASE, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE NOCASE"

#define KSDB_USER_COLUMNS(uname_collation)                                          \
    KSDB_USER_COLUMNS_HEAD(uname_collation)                                         \
    ", `is_locked` TINYINT(1) NOT NULL DEFAULT 0, `shell_access` TINYINT(1) NOT NULL " \
    "DEFAULT 0, PRIMARY KEY (`id`))"

#define KSDB_GROUP_COLUMNS_HEAD(gname_collation)                                          \
    " ( `id` INT NOT NULL, `gname` VARCHAR(45) NOT NULL COLLATE " gname_collation         \
    ", `is_privileged` TINYINT(1) NOT NULL, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE " \
    "NOCASE"

#define KSDB_GROUP_HAS_USER_COLUMNS \
    " ( `user_id` INT NOT NULL, `group_id` INT NOT NULL, PRIMARY KEY (`user_id`, `group_id`))"

#define KSDB_SNAPSHOT_COLUMNS_HEAD                                                           \
    " ( `id` INTEGER NOT NULL, `zfs_name` VARCHAR(45) NOT NULL COLLATE NOCASE, `name` "      \
    "VARCHAR(45) NOT NULL COLLATE NOCASE, `type` INT NOT NULL, `created_on` INT NOT NULL, " \
    "`used` BIGINT NULL"

#define KSDB_LOG_COLUMNS                                                                     \
    " ( `id` INTEGER NOT NULL, `tstamp` INT NOT NULL, `severity` VARCHAR(45) NOT NULL "      \
    "COLLATE NOCASE, `category` VARCHAR(45) NOT NULL COLLATE NOCASE, `msg_tag` VARCHAR(45) " \
    "NOT NULL COLLATE NOCASE, `msg_args_xml` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY "  \
    "KEY (`id`))"

#define KSDB_VOLUME_SPARES_COLUMNS                                                   \
    " ( `id` INTEGER NOT NULL, `disk_info_id` VARCHAR(45) NOT NULL COLLATE NOCASE, " \
    "PRIMARY KEY (`id`))"

#define KSDB_REGISTRY_COLUMNS                                                            \
    " ( `key` INT NOT NULL, `value` VARCHAR(1023) NOT NULL DEFAULT '' COLLATE NOCASE, " \
    "PRIMARY KEY (`key`))"

#define KSDB_SNAPSHOT_CLONES_COLUMNS                                                  \
    " ( `id` INTEGER NOT NULL, `cloned_zfs_name` VARCHAR(45) NULL COLLATE NOCASE, "  \
    "`parent_snapshot_name` VARCHAR(45) NULL COLLATE NOCASE, `parent_zfs_name` "     \
    "VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`id`))"

#define KSDB_APPLICATION_ON_SHARE_COLUMNS                                                  \
    " ( `zfs_name` VARCHAR(45) NOT NULL COLLATE NOCASE, `app_name` VARCHAR(45) NOT NULL " \
    "COLLATE NOCASE, `app_data` VARCHAR(65534) NULL COLLATE NOCASE, PRIMARY KEY "         \
    "(`zfs_name`, `app_name`))"

#define KSDB_KESTRAVAD_COLUMNS                                                           \
    " ( `started_on` INT NOT NULL DEFAULT 0, `stopped_on` INT NOT NULL DEFAULT 0, "     \
    "`version` VARCHAR(45) NOT NULL DEFAULT '1.0.0' COLLATE NOCASE)"

#define KSDB_ISCSI_LUN_GROUP_ACCESS_COLUMNS                                                \
    " ( `lun_group` VARCHAR(255) NOT NULL COLLATE NOCASE, `initiator` VARCHAR(255) NOT " \
    "NULL COLLATE NOCASE)"

#define KSDB_DISK_INFO_COLUMNS                                                             \
    " ( `id` VARCHAR(45) NOT NULL COLLATE NOCASE, `vendor` VARCHAR(63) NULL COLLATE "     \
    "NOCASE, `model` VARCHAR(63) NULL COLLATE NOCASE, `serial` VARCHAR(63) NULL COLLATE " \
    "NOCASE, `firmware` VARCHAR(45) NULL COLLATE NOCASE, `kb_size` BIGINT NULL, "         \
    "`first_seen` INT NULL, `last_seen` INT NULL, PRIMARY KEY (`id`))"

#define KSDB_ISCSI_LUN_GROUP_COLUMNS_HEAD                                                \
    " ( `name` VARCHAR(255) NOT NULL COLLATE NOCASE, `target` VARCHAR(255) NOT NULL "   \
    "COLLATE NOCASE, `all_hosts` INT NOT NULL, `chap_auth` INT NOT NULL, `chap_secret` " \
    "VARCHAR(255) NULL COLLATE NOCASE"

#define KSDB_ISCSI_INITIATOR_COLUMNS                                                     \
    " ( `name` VARCHAR(255) NOT NULL COLLATE NOCASE, `chap_auth` INT NOT NULL, "        \
    "`chap_secret` VARCHAR(255) NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY KEY " \
    "(`name`))"

#define KSDB_ISCSI_LUN_COLUMNS                                                          \
    " ( `name` VARCHAR(255) NOT NULL COLLATE NOCASE, `lun_group` VARCHAR(255) NULL "   \
    "COLLATE NOCASE, `lun_n` INT NOT NULL, PRIMARY KEY (`name`))"

#define KSDB_TIMEMACHINE_QUOTA_COLUMNS \
    " ( `user_id` INT NOT NULL, `mb_quota` BIGINT UNSIGNED NULL, PRIMARY KEY (`user_id`))"

#define KSDB_HOME_FOLDER_SNAPSHOT_SCHEDULE_COLUMNS                                          \
    " ( `user_id` INT NOT NULL, `enabled` INT NOT NULL DEFAULT 0, `minute` VARCHAR(45) "   \
    "NULL COLLATE NOCASE, `hour` VARCHAR(45) NULL COLLATE NOCASE, `day_of_month` "         \
    "VARCHAR(45) NULL COLLATE NOCASE, `day_of_week` VARCHAR(45) NULL COLLATE NOCASE, "     \
    "`month` VARCHAR(45) NULL COLLATE NOCASE, `last_taken` INT NULL, PRIMARY KEY "         \
    "(`user_id`))"

#define KSDB_HOME_FOLDER_COLUMNS_HEAD                                                        \
    " ( `user_id` INT NOT NULL, `snapshot_protection_enabled` INT NOT NULL DEFAULT 0, "     \
    "`quota` BIGINT NULL, `visible_snapdir` INT NOT NULL DEFAULT 0"

#define KSDB_HOME_FOLDER_SNAPSHOT_COLUMNS_HEAD                                            \
    " ( `id` INTEGER NOT NULL, `user_name` VARCHAR(45) NOT NULL COLLATE NOCASE, "        \
    "`home_dir` VARCHAR(255) NOT NULL COLLATE NOCASE, `name` VARCHAR(45) NOT NULL "      \
    "COLLATE NOCASE, `type` INT NOT NULL, `created_on` INT NOT NULL"

#define KSDB_VOL_MAINT_LOG_COLUMNS                                                           \
    " ( `operation` VARCHAR(16) NOT NULL COLLATE NOCASE, `device` VARCHAR(64) NOT NULL "    \
    "COLLATE NOCASE, `start_time` INT NOT NULL, `end_time` INT NULL, `result` VARCHAR(16) " \
    "NULL COLLATE NOCASE, `details` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY "         \
    "(`operation`, `device`, `start_time`))"

// Current shapes of the stored tables.
constexpr const char kUser[] = "CREATE TABLE IF NOT EXISTS `$user`" KSDB_USER_COLUMNS("NOCASE");
constexpr const char kUserRid[] = "CREATE INDEX IF NOT EXISTS `$user_rid` ON `$user` (`rid` ASC)";
constexpr const char kGroup[] = "CREATE TABLE IF NOT EXISTS `$group`" KSDB_GROUP_COLUMNS_HEAD(
    "BINARY") ", PRIMARY KEY (`id`))";
constexpr const char kGroupRid[] =
    "CREATE INDEX IF NOT EXISTS `$group_rid` ON `$group` (`rid` ASC)";
constexpr const char kGroupHasUser[] =
    "CREATE TABLE IF NOT EXISTS `$group_has_user`" KSDB_GROUP_HAS_USER_COLUMNS;
constexpr const char kDiskInfo[] =
    "CREATE TABLE IF NOT EXISTS `$disk_info`" KSDB_DISK_INFO_COLUMNS;
constexpr const char kSnapshot[] =
    "CREATE TABLE IF NOT EXISTS `$snapshot`" KSDB_SNAPSHOT_COLUMNS_HEAD
    ", `exported_as_share` INT NULL, UNIQUE (`zfs_name` ASC, `name` ASC), PRIMARY KEY (`id`))";
constexpr const char kLog[] = "CREATE TABLE IF NOT EXISTS `$log`" KSDB_LOG_COLUMNS;
constexpr const char kVolumeSpares[] =
    "CREATE TABLE IF NOT EXISTS `$volume_spares`" KSDB_VOLUME_SPARES_COLUMNS;
constexpr const char kRegistry[] = "CREATE TABLE IF NOT EXISTS `$registry`" KSDB_REGISTRY_COLUMNS;
constexpr const char kSnapshotClones[] =
    "CREATE TABLE IF NOT EXISTS `$snapshot_clones`" KSDB_SNAPSHOT_CLONES_COLUMNS;
constexpr const char kApplicationOnShare[] =
    "CREATE TABLE IF NOT EXISTS `$application_on_share`" KSDB_APPLICATION_ON_SHARE_COLUMNS;
constexpr const char kKestravad[] =
    "CREATE TABLE IF NOT EXISTS `$kestravad`" KSDB_KESTRAVAD_COLUMNS;
constexpr const char kIscsiLunGroupAccess[] =
    "CREATE TABLE IF NOT EXISTS `$iscsi_lun_group_access`" KSDB_ISCSI_LUN_GROUP_ACCESS_COLUMNS;
constexpr const char kIscsiLunGroup[] =
    "CREATE TABLE IF NOT EXISTS `$iscsi_lun_group`" KSDB_ISCSI_LUN_GROUP_COLUMNS_HEAD
    ", UNIQUE (`name` ASC), UNIQUE (`target` ASC), PRIMARY KEY (`name`))";
constexpr const char kIscsiInitiator[] =
    "CREATE TABLE IF NOT EXISTS `$iscsi_initiator`" KSDB_ISCSI_INITIATOR_COLUMNS;
constexpr const char kIscsiLun[] = "CREATE TABLE IF NOT EXISTS `$iscsi_lun`" KSDB_ISCSI_LUN_COLUMNS;
constexpr const char kTimemachineQuota[] =
    "CREATE TABLE IF NOT EXISTS `$timemachine_quota`" KSDB_TIMEMACHINE_QUOTA_COLUMNS;
constexpr const char kHomeFolderSnapshotSchedule[] =
    "CREATE TABLE IF NOT EXISTS `$home_folder_snapshot_schedule`"
    KSDB_HOME_FOLDER_SNAPSHOT_SCHEDULE_COLUMNS;
constexpr const char kHomeFolder[] = "CREATE TABLE IF NOT EXISTS `$home_folder`"
    KSDB_HOME_FOLDER_COLUMNS_HEAD ", `prev_versions` INT NULL, PRIMARY KEY (`user_id`))";
constexpr const char kHomeFolderSnapshot[] = "CREATE TABLE IF NOT EXISTS `$home_folder_snapshot`"
    KSDB_HOME_FOLDER_SNAPSHOT_COLUMNS_HEAD ", `used` BIGINT NULL, PRIMARY KEY (`id`))";
constexpr const char kVolMaintLog[] =
    "CREATE TABLE IF NOT EXISTS `$vol_maint_log`" KSDB_VOL_MAINT_LOG_COLUMNS;

}  // namespace

// ---- the creation list -----------------------------------------------------

const char *const kCreation[] = {
    // 1 `_volume`
    "DROP TABLE IF EXISTS `_volume` ",
    "CREATE TEMPORARY TABLE `_volume` ( `id` VARCHAR(45) NOT NULL COLLATE NOCASE, `lv_name` "
    "VARCHAR(45) NOT NULL COLLATE NOCASE, `uuid` VARCHAR(63) NULL COLLATE NOCASE, `devname` "
    "VARCHAR(45) NULL COLLATE NOCASE, `blk_total` BIGINT NULL, `blk_free` BIGINT NULL, "
    "`blk_size` INT NOT NULL, `raid_type` VARCHAR(45) NULL COLLATE NOCASE, `zfs_type` "
    "VARCHAR(45) NULL COLLATE NOCASE, `volumecol` VARCHAR(45) NULL COLLATE NOCASE, "
    "`volume_health` VARCHAR(45) NOT NULL DEFAULT 'UNKNOWN' COLLATE NOCASE, "
    "`sent_resilver_event` INT NOT NULL DEFAULT 0, `sent_scan_end` INT NOT NULL DEFAULT 1, "
    "`keyfile` VARCHAR(45) NULL COLLATE NOCASE, `balance_status` INT NOT NULL DEFAULT 0, "
    "`disk_test_status` INT NOT NULL DEFAULT 0, UNIQUE (`lv_name` ASC), PRIMARY KEY (`id`))",
    // 2 `share`
    "DROP TABLE IF EXISTS `share` ",
    "CREATE TABLE `share` ( `id` INTEGER NOT NULL, `zfs_name` VARCHAR(45) NOT NULL COLLATE "
    "NOCASE, `type` VARCHAR(45) NULL COLLATE NOCASE, `volume_id` VARCHAR(45) NULL COLLATE "
    "NOCASE, `usb_storage_id` INT NULL, `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `path` "
    "VARCHAR(255) NOT NULL COLLATE NOCASE, `comment` VARCHAR(255) NULL COLLATE NOCASE, "
    "`user_access` INT NULL, `group_access` INT NULL, `everyone_access` INT NULL, "
    "`non_owner_delete` TINYINT(1) NULL, `user_id` INT NOT NULL, `group_id` INT NOT NULL, "
    "`migrate_to_volume_id` VARCHAR(45) NULL COLLATE NOCASE, `visible_snapdir` VARCHAR(45) "
    "NULL COLLATE NOCASE, `update_ts` DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP, UNIQUE "
    "(`name` ASC), PRIMARY KEY (`id`))",
    // 3 `user_acl`
    "DROP TABLE IF EXISTS `user_acl` ",
    "CREATE TABLE `user_acl` ( `share_id` INT NOT NULL, `user_id` INT NOT NULL, `proto` "
    "VARCHAR(45) NOT NULL COLLATE NOCASE, `read` TINYINT(1) NOT NULL, `write` TINYINT(1) NOT "
    "NULL, PRIMARY KEY (`proto`, `user_id`, `share_id`))",
    // 4 `$user`, index `$user_rid`
    kUser,
    kUserRid,
    // 5 `host_acl`
    "DROP TABLE IF EXISTS `host_acl` ",
    "CREATE TABLE `host_acl` ( `share_id` INT NOT NULL, `host_id` INT NOT NULL, `proto` "
    "VARCHAR(45) NOT NULL COLLATE NOCASE, `read` TINYINT(1) NOT NULL, `write` TINYINT(1) NOT "
    "NULL, `root` TINYINT(1) NOT NULL DEFAULT 0, PRIMARY KEY (`share_id`, `proto`, "
    "`host_id`))",
    // 6 `readonly_host`
    "DROP TABLE IF EXISTS `readonly_host` ",
    "CREATE TABLE `readonly_host` ( `share_id` INT NOT NULL, `hosts` VARCHAR(255) NOT NULL "
    "COLLATE NOCASE, `proto` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`hosts`, "
    "`proto`))",
    // 7 `cifs_share_option`
    "DROP TABLE IF EXISTS `cifs_share_option` ",
    "CREATE TABLE `cifs_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT "
    "NULL DEFAULT 1, `cifs_access` VARCHAR(45) NOT NULL COLLATE NOCASE, `cifs_guest_access` "
    "TINYINT(1) NULL, `cifs_hide_share` TINYINT(1) NULL, `cifs_group_create_mask` INT NULL, "
    "`cifs_everyone_create_mask` INT NULL, `cifs_enable_masks` TINYINT(1) NULL, "
    "`cifs_group_directory_mask` INT NULL, `cifs_everyone_directory_mask` INT NULL, "
    "`cifs_enable_forced_minimum` TINYINT(1) NULL, `cifs_recycle` TINYINT(1) NULL, "
    "`cifs_recycle_mb_limit` INT NULL, `cifs_recycle_age_limit` INT NULL, `oplocks` "
    "TINYINT(1) NULL, `force_user` INT NULL, `cifs_enabledfs` INT NULL, PRIMARY KEY "
    "(`share_id`))",
    // 8 `afp_share_option`
    "DROP TABLE IF EXISTS `afp_share_option` ",
    "CREATE TABLE `afp_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT "
    "NULL DEFAULT 1, `afp_access` VARCHAR(45) NOT NULL COLLATE NOCASE, `afp_guest_access` INT "
    "NOT NULL, `afp_fperm` INT NULL, `afp_dperm` INT NULL, `other_options` LONGTEXT NULL, "
    "`force_user` INT NULL, PRIMARY KEY (`share_id`))",
    // 9 `http_share_option`
    "DROP TABLE IF EXISTS `http_share_option` ",
    "CREATE TABLE `http_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT "
    "NULL DEFAULT 1, `http_access` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY "
    "(`share_id`))",
    // 10 `nfs_share_option`
    "DROP TABLE IF EXISTS `nfs_share_option` ",
    "CREATE TABLE `nfs_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT "
    "NULL DEFAULT 1, `nfs_access` VARCHAR(45) NOT NULL COLLATE NOCASE, `nfs_sync` TINYINT(1) "
    "NOT NULL DEFAULT 0, `other_options` LONGTEXT NULL, PRIMARY KEY (`share_id`))",
    // 11 `user_quota`
    "DROP TABLE IF EXISTS `user_quota` ",
    "CREATE TABLE `user_quota` ( `user_id` INT NOT NULL, `share_id` INT NOT NULL, `mb_soft` "
    "BIGINT UNSIGNED NULL, `mb_hard` BIGINT UNSIGNED NULL, PRIMARY KEY (`user_id`, "
    "`share_id`))",
    // 12 `$group`, index `$group_rid`
    kGroup,
    kGroupRid,
    // 13 `group_acl`
    "DROP TABLE IF EXISTS `group_acl` ",
    "CREATE TABLE `group_acl` ( `share_id` INT NOT NULL, `group_id` INT NOT NULL, `proto` "
    "VARCHAR(45) NOT NULL COLLATE NOCASE, `read` TINYINT(1) NOT NULL, `write` TINYINT(1) NOT "
    "NULL, PRIMARY KEY (`proto`, `share_id`, `group_id`))",
    // 14 `$group_has_user`
    kGroupHasUser,
    // 15 `host`
    "DROP TABLE IF EXISTS `host` ",
    "CREATE TABLE `host` ( `id` INTEGER NOT NULL, `name` VARCHAR(255) NOT NULL COLLATE "
    "NOCASE, UNIQUE (`name` ASC), PRIMARY KEY (`id`))",
    // 16 `group_quota`
    "DROP TABLE IF EXISTS `group_quota` ",
    "CREATE TABLE `group_quota` ( `group_id` INT NOT NULL, `share_id` INT NOT NULL, `mb_soft` "
    "BIGINT UNSIGNED NULL, `mb_hard` BIGINT UNSIGNED NULL, PRIMARY KEY (`group_id`, "
    "`share_id`))",
    // 17 `backup`
    "DROP TABLE IF EXISTS `backup` ",
    "CREATE TABLE `backup` ( `id` INTEGER NOT NULL, `name` VARCHAR(63) NOT NULL DEFAULT '' "
    "COLLATE NOCASE, `enabled` INT NOT NULL DEFAULT 0, `sch_every` INT NOT NULL DEFAULT 0, "
    "`sch_start` INT NOT NULL DEFAULT 23, `sch_end` INT NOT NULL DEFAULT 24, `sch_dow` INT "
    "NULL, `src_type` VARCHAR(63) NOT NULL DEFAULT 'local' COLLATE NOCASE, `src_share_proto` "
    "VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `src_path` VARCHAR(63) NOT NULL DEFAULT "
    "'' COLLATE NOCASE, `src_login` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "`src_password` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `src_port` INT NULL, "
    "`src_eject` INT NULL, `dst_type` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "`dst_share_proto` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `dst_path` "
    "VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `dst_login` VARCHAR(63) NOT NULL "
    "DEFAULT '' COLLATE NOCASE, `dst_password` VARCHAR(63) NOT NULL DEFAULT '' COLLATE "
    "NOCASE, `dst_port` INT NULL, `dst_eject` INT NULL, `opt_full_backup_freq` VARCHAR(45) "
    "NULL COLLATE NOCASE, `opt_remove_previous_backup` INT NULL, `opt_chown_to_share_owner` "
    "INT NULL, `opt_rsync_options` INT NULL, `opt_email_this_to_alert_email` INT NULL, "
    "`opt_rsync_exclude` VARCHAR(65535) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "`opt_misc_option` INT NULL, `wol_addr` VARCHAR(31) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "PRIMARY KEY (`id`))",
    // 18 `dlna_share_option`
    "DROP TABLE IF EXISTS `dlna_share_option` ",
    "CREATE TABLE `dlna_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT "
    "NULL DEFAULT 1, PRIMARY KEY (`share_id`))",
    // 19 `service_dlna`
    "DROP TABLE IF EXISTS `service_dlna` ",
    "CREATE TABLE `service_dlna` ( `enabled` INT NULL DEFAULT 0, `port` INT NOT NULL DEFAULT "
    "8200, `friendly_name` VARCHAR(63) NULL DEFAULT NULL COLLATE NOCASE, `album_art_names` "
    "VARCHAR(1023) NOT NULL DEFAULT "
    "'Cover.jpg/cover.jpg/AlbumArtSmall.jpg/albumartsmall.jpg/AlbumArt.jpg/albumart.jpg/"
    "Album.jpg/album.jpg/Folder.jpg/folder.jpg/AlbumArt_{*/Thumb.jpg/thumb.jpg' COLLATE "
    "NOCASE, `inotify` INT NOT NULL DEFAULT 1, `enable_tivo_server` INT NOT NULL DEFAULT 0, "
    "`presentation_url` VARCHAR(511) NULL DEFAULT NULL COLLATE NOCASE, `notify_interval` INT "
    "NOT NULL DEFAULT 900, `serial` VARCHAR(63) NULL DEFAULT NULL COLLATE NOCASE, "
    "`model_number` VARCHAR(63) NULL DEFAULT NULL COLLATE NOCASE, `db_dir` VARCHAR(63) NULL "
    "DEFAULT NULL COLLATE NOCASE, `enable_tivo_archiver` INT NOT NULL DEFAULT 0, "
    "`user_home_directory` INT NULL DEFAULT 0)",
    // 20 `account_default`
    "DROP TABLE IF EXISTS `account_default` ",
    "CREATE TABLE `account_default` ( `home_volume_id` VARCHAR(45) NOT NULL DEFAULT 0 "
    "COLLATE NOCASE, `diskquota_warn` INT NOT NULL DEFAULT 0, `group_id` INT NOT NULL "
    "DEFAULT 0, `disallow_password_change` INT NOT NULL DEFAULT 0, "
    "`home_folder_capacity_limit` INT NOT NULL DEFAULT 0, `group_membership` VARCHAR(45) NOT "
    "NULL DEFAULT 0 COLLATE NOCASE, `private_time_machine` INT NOT NULL DEFAULT 0, "
    "`private_time_machine_space` INT NOT NULL DEFAULT 0, `snapshot_protection` INT NOT NULL "
    "DEFAULT 0, `next_uid` INT NOT NULL DEFAULT 100)",
    // 21 `passwordrecovery`
    "DROP TABLE IF EXISTS `passwordrecovery` ",
    "CREATE TABLE `passwordrecovery` ( `email` VARCHAR(255) NOT NULL DEFAULT '' COLLATE "
    "NOCASE, `question` VARCHAR(255) NOT NULL DEFAULT '' COLLATE NOCASE, `answer` "
    "VARCHAR(255) NOT NULL DEFAULT '' COLLATE NOCASE, `enabled` INT NULL DEFAULT 0, `method` "
    "VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE)",
    // 22 `usb_storage`
    "DROP TABLE IF EXISTS `usb_storage` ",
    "CREATE TABLE `usb_storage` ( `id` INTEGER NOT NULL, `name` VARCHAR(45) NOT NULL COLLATE "
    "NOCASE, `devname` VARCHAR(45) NULL COLLATE NOCASE, `fs_type` VARCHAR(45) NULL COLLATE "
    "NOCASE, `vendor` VARCHAR(63) NULL COLLATE NOCASE, `model` VARCHAR(63) NULL COLLATE "
    "NOCASE, `serial` VARCHAR(63) NULL COLLATE NOCASE, `kb_size` BIGINT NULL, `usb_port_id` "
    "INT NULL, `mount_point` VARCHAR(255) NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY "
    "KEY (`id`))",
    // 23 `network_if`
    "DROP TABLE IF EXISTS `network_if` ",
    "CREATE TABLE `network_if` ( `name` VARCHAR(31) NOT NULL COLLATE NOCASE, `mac` "
    "VARCHAR(45) NOT NULL COLLATE NOCASE, `protocol` VARCHAR(45) NULL COLLATE NOCASE, `ip` "
    "VARCHAR(45) NULL COLLATE NOCASE, `dns1` VARCHAR(45) NULL COLLATE NOCASE, `dns2` "
    "VARCHAR(45) NULL COLLATE NOCASE, `gateway` VARCHAR(45) NULL COLLATE NOCASE, `subnet` "
    "VARCHAR(45) NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY KEY (`name`))",
    // 24 `service_avahi`
    "DROP TABLE IF EXISTS `service_avahi` ",
    "CREATE TABLE `service_avahi` ( `enabled` INT NOT NULL, `cifs` INT NOT NULL, `afp` INT "
    "NOT NULL, `quillfold` INT NOT NULL, `printer` INT NOT NULL, `kestrava` INT NOT NULL, "
    "`timemachine` INT NOT NULL)",
    // 25 `vital_product_data`
    "DROP TABLE IF EXISTS `vital_product_data` ",
    "CREATE TABLE `vital_product_data` ( `vendor` VARCHAR(31) NULL COLLATE NOCASE, `model` "
    "VARCHAR(31) NULL COLLATE NOCASE, `serial` VARCHAR(31) NULL COLLATE NOCASE, `max_chan` "
    "INT NULL, `autospan` INT NULL)",
    // 26 `service_misc`
    "DROP TABLE IF EXISTS `service_misc` ",
    "CREATE TABLE `service_misc` ( `key` VARCHAR(96) NOT NULL COLLATE NOCASE, `val` "
    "VARCHAR(1023) NOT NULL DEFAULT '' COLLATE NOCASE, `table_name` VARCHAR(45) NULL COLLATE "
    "NOCASE, `column_name` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`key`))",
    // 27 `service_cifs`
    "DROP TABLE IF EXISTS `service_cifs` ",
    "CREATE TABLE `service_cifs` ( `enabled` INT NULL, `security` VARCHAR(45) NULL COLLATE "
    "NOCASE, `oplocks` INT NULL, `map_to_guest` VARCHAR(45) NULL COLLATE NOCASE, `workgroup` "
    "VARCHAR(45) NULL COLLATE NOCASE, `realm` VARCHAR(45) NULL COLLATE NOCASE, `orgunit` "
    "VARCHAR(45) NULL COLLATE NOCASE, `restrict_ou` VARCHAR(45) NULL COLLATE NOCASE, "
    "`domain_admin_user` VARCHAR(45) NULL COLLATE NOCASE, `domain_admin_gid` INT NULL, "
    "`domain_admin_uid` INT NULL, `domain_sid` VARCHAR(45) NULL COLLATE NOCASE, "
    "`password_server` VARCHAR(45) NULL COLLATE NOCASE, `allow_trusted_domains` INT NULL, "
    "`user_home_directory` INT NOT NULL, `user_home_directory_recycle` INT NULL, "
    "`user_home_directory_recycle_max_days` INT NULL, `user_home_directory_recycle_max_size` "
    "INT NULL, `no_sync_ads` INT NULL, `hostname_lookups` INT NULL, `join_ads_failed` INT "
    "NULL, `idmap_backend` VARCHAR(45) NULL DEFAULT 'rid' COLLATE NOCASE)",
    // 28 `service_afp`
    "DROP TABLE IF EXISTS `service_afp` ",
    "CREATE TABLE `service_afp` ( `enabled` INT NULL, `user_home_directory` INT NULL DEFAULT "
    "0)",
    // 29 `usb_port`
    "DROP TABLE IF EXISTS `usb_port` ",
    "CREATE TABLE `usb_port` ( `id` INTEGER NOT NULL, `name` VARCHAR(45) NOT NULL COLLATE "
    "NOCASE, `bus_path` VARCHAR(255) NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY KEY "
    "(`id`))",
    // 30 `backup_protocol`
    "DROP TABLE IF EXISTS `backup_protocol` ",
    "CREATE TABLE `backup_protocol` ( `id` INTEGER NOT NULL, `proto` VARCHAR(15) NOT NULL "
    "COLLATE NOCASE, `readonly` INT NOT NULL, UNIQUE (`proto` ASC), PRIMARY KEY (`id`))",
    // 31 `backup_button_jobs`
    "DROP TABLE IF EXISTS `backup_button_jobs` ",
    "CREATE TABLE `backup_button_jobs` ( `order` INT NOT NULL, `backup_id` INT NULL, PRIMARY "
    "KEY (`order`))",
    // 32 `system_config`
    "DROP TABLE IF EXISTS `system_config` ",
    "CREATE TABLE `system_config` ( `raid_mode` VARCHAR(45) NULL COLLATE NOCASE)",
    // 33 `$disk_info`
    kDiskInfo,
    // 34 `disk_port`
    "DROP TABLE IF EXISTS `disk_port` ",
    "CREATE TABLE `disk_port` ( `id` INTEGER NOT NULL, `enclosure_id` INT NULL, `slot` INT "
    "NOT NULL, `devname` VARCHAR(45) NULL COLLATE NOCASE, `disk_info_id` VARCHAR(45) NULL "
    "COLLATE NOCASE, PRIMARY KEY (`id`))",
    // 35 `_disk_health`
    "DROP TABLE IF EXISTS `_disk_health` ",
    "CREATE TEMPORARY TABLE `_disk_health` ( `disk_info_id` VARCHAR(45) NOT NULL COLLATE "
    "NOCASE, `devname` VARCHAR(45) NULL COLLATE NOCASE, `health` VARCHAR(45) NOT NULL "
    "DEFAULT 'UNKNOWN' COLLATE NOCASE, `temperature` INT NULL, `power_on_hours` INT NULL, "
    "`reallocated_sectors` INT NULL, `pending_sectors` INT NULL, PRIMARY KEY "
    "(`disk_info_id`))",
    // 36 `$snapshot`
    kSnapshot,
    // 37 `ftp_share_option`
    "DROP TABLE IF EXISTS `ftp_share_option` ",
    "CREATE TABLE `ftp_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT "
    "NULL DEFAULT 1, `ftp_access` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY "
    "(`share_id`))",
    // 38 `_zfs_stat`
    "DROP TABLE IF EXISTS `_zfs_stat` ",
    "CREATE TEMPORARY TABLE `_zfs_stat` ( `share_id` INT NOT NULL, `available` BIGINT "
    "UNSIGNED NULL, `used` BIGINT UNSIGNED NULL, `usedbychildren` BIGINT UNSIGNED NULL, "
    "`usedbydataset` BIGINT UNSIGNED NULL, `usedbyrefreservation` BIGINT UNSIGNED NULL, "
    "`usedbysnapshots` BIGINT UNSIGNED NULL, `compressratio` VARCHAR(45) NULL COLLATE "
    "NOCASE, `referenced` BIGINT UNSIGNED NULL, PRIMARY KEY (`share_id`))",
    // 39 `_user_quota_stat`
    "DROP TABLE IF EXISTS `_user_quota_stat` ",
    "CREATE TEMPORARY TABLE `_user_quota_stat` ( `user_id` INT NOT NULL, `share_id` INT NOT "
    "NULL, `used` BIGINT UNSIGNED NULL, PRIMARY KEY (`user_id`, `share_id`))",
    // 40 `_group_quota_stat`
    "DROP TABLE IF EXISTS `_group_quota_stat` ",
    "CREATE TEMPORARY TABLE `_group_quota_stat` ( `group_id` INT NOT NULL, `share_id` INT "
    "NOT NULL, `used` BIGINT UNSIGNED NULL, PRIMARY KEY (`group_id`, `share_id`))",
    // 41 `service_ftp`
    "DROP TABLE IF EXISTS `service_ftp` ",
    "CREATE TABLE `service_ftp` ( `enabled` INT NULL DEFAULT 0, `port` INT NULL DEFAULT 21, "
    "`auth_mode` VARCHAR(45) NULL DEFAULT 'user' COLLATE NOCASE, `passive_range_min` INT "
    "NULL DEFAULT 32768, `passive_range_max` INT NULL DEFAULT 65535, `enable_masquerade` INT "
    "NOT NULL DEFAULT 0, `masquerade` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "`upload_resume` INT NOT NULL DEFAULT 0, `user_home_directory` INT NOT NULL DEFAULT 0, "
    "`ftps` INT NOT NULL DEFAULT 0, `server_transfer_log` INT NOT NULL DEFAULT 0, "
    "`max_upload_rate` INT NULL DEFAULT 0, `max_download_rate` INT NULL DEFAULT 0, "
    "`force_ftps` INT NOT NULL DEFAULT 0, `use_reverse_dns` INT NOT NULL DEFAULT 0)",
    // 42 `service_nfs`
    "DROP TABLE IF EXISTS `service_nfs` ",
    "CREATE TABLE `service_nfs` ( `enabled` INT NULL, `user_home_directory` INT NULL DEFAULT "
    "0, `threads` INT NULL DEFAULT 0, `nfsv4` INT NULL DEFAULT 0, `domain` VARCHAR(45) NULL "
    "COLLATE NOCASE)",
    // 43 `snapshot_schedule`
    "DROP TABLE IF EXISTS `snapshot_schedule` ",
    "CREATE TABLE `snapshot_schedule` ( `share_id` INT NOT NULL, `enabled` INT NOT NULL, "
    "`minute` VARCHAR(45) NULL COLLATE NOCASE, `hour` VARCHAR(45) NULL COLLATE NOCASE, "
    "`day_of_month` VARCHAR(45) NULL COLLATE NOCASE, `day_of_week` VARCHAR(45) NULL COLLATE "
    "NOCASE, `month` VARCHAR(45) NULL COLLATE NOCASE, `last_taken` INT NULL, "
    "`purge_manual_snapshot` VARCHAR(45) NULL COLLATE NOCASE, `temporary_disable` INT NULL, "
    "`last_daily_taken` INT NOT NULL DEFAULT 0, `last_weekly_taken` INT NOT NULL DEFAULT 0, "
    "PRIMARY KEY (`share_id`))",
    // 44 `zvol_share_option`
    "DROP TABLE IF EXISTS `zvol_share_option` ",
    "CREATE TABLE `zvol_share_option` ( `share_id` INT NULL, `kb_size` BIGINT NULL, "
    "`is_sparse` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`share_id`))",
    // 45 `_enclosure_health`
    "DROP TABLE IF EXISTS `_enclosure_health` ",
    "CREATE TEMPORARY TABLE `_enclosure_health` ( `enclosure_id` INT NOT NULL, `sensor` "
    "VARCHAR(63) NOT NULL COLLATE NOCASE, `value` INT NULL, `status` VARCHAR(45) NULL "
    "COLLATE NOCASE, PRIMARY KEY (`enclosure_id`, `sensor`))",
    // 46 `service_snmp`
    "DROP TABLE IF EXISTS `service_snmp` ",
    "CREATE TABLE `service_snmp` ( `enabled` INT NOT NULL DEFAULT 0, `allow_host` "
    "VARCHAR(45) NOT NULL DEFAULT 'default' COLLATE NOCASE, `community` VARCHAR(45) NOT NULL "
    "DEFAULT 'public' COLLATE NOCASE, `trap_destination` VARCHAR(45) NOT NULL DEFAULT '' "
    "COLLATE NOCASE, `contact` VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE, `location` "
    "VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE)",
    // 47 `$log`
    kLog,
    // 48 `zfs_attr`
    "DROP TABLE IF EXISTS `zfs_attr` ",
    "CREATE TABLE `zfs_attr` ( `share_id` INT NOT NULL, `mb_quota` BIGINT NULL, "
    "`mb_reservation` BIGINT NULL, `mb_refquota` BIGINT NULL, `mb_refreservation` BIGINT "
    "NULL, `compression` INT NULL, `dedup` INT NULL, `logbias` VARCHAR(45) NULL COLLATE "
    "NOCASE, `origin` VARCHAR(45) NULL COLLATE NOCASE, `sync` VARCHAR(45) NULL COLLATE "
    "NOCASE, `dedup_auto_disabling` INT NULL, `bit_rot_protection` INT NULL, PRIMARY KEY "
    "(`share_id`))",
    // 49 `$volume_spares`
    kVolumeSpares,
    // 50 `disk_enclosure`
    "DROP TABLE IF EXISTS `disk_enclosure` ",
    "CREATE TABLE `disk_enclosure` ( `id` INTEGER NOT NULL, `name` VARCHAR(63) NOT NULL "
    "COLLATE NOCASE, `vendor` VARCHAR(63) NULL COLLATE NOCASE, `model` VARCHAR(63) NULL "
    "COLLATE NOCASE, `serial` VARCHAR(63) NULL COLLATE NOCASE, `slots` INT NOT NULL DEFAULT "
    "0, PRIMARY KEY (`id`))",
    // 51 `$registry`
    kRegistry,
    // 52 `jbod_port`
    "DROP TABLE IF EXISTS `jbod_port` ",
    "CREATE TABLE `jbod_port` ( `id` INTEGER NOT NULL, `enclosure_id` INT NOT NULL, `port` "
    "INT NOT NULL, `devname` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`id`))",
    // 53 `$snapshot_clones`
    kSnapshotClones,
    // 54 `$application_on_share`
    kApplicationOnShare,
    // 55 `$kestravad`
    kKestravad,
    // 56 `service_ssh`
    "DROP TABLE IF EXISTS `service_ssh` ",
    "CREATE TABLE `service_ssh` ( `enabled` INT NULL, `port` INT NULL, `ui_enabled` INT NULL, "
    "`remote_enabled` INT NULL, `remote_port` INT NULL, `password_authentication` INT NOT "
    "NULL DEFAULT 1)",
    // 57 `$iscsi_lun_group_access`
    kIscsiLunGroupAccess,
    // 58 `service_replicate`
    "DROP TABLE IF EXISTS `service_replicate` ",
    "CREATE TABLE `service_replicate` ( `enabled` INT NULL, `owner` VARCHAR(255) NULL COLLATE "
    "NOCASE, `priv_data` VARCHAR(255) NULL COLLATE NOCASE)",
    // 59 `_ads_importer`
    "DROP TABLE IF EXISTS `_ads_importer` ",
    "CREATE TEMPORARY TABLE `_ads_importer` ( `state` INT NOT NULL DEFAULT 0, `total_group` "
    "INT NOT NULL DEFAULT 0, `curr_group` INT NOT NULL DEFAULT 0, `total_user` INT NOT NULL "
    "DEFAULT 0, `curr_user` INT NOT NULL DEFAULT 0, `start_at` INT NOT NULL DEFAULT 0, "
    "`done_at` INT NOT NULL DEFAULT 0)",
    // 60 `enclosure_health_spec`
    "DROP TABLE IF EXISTS `enclosure_health_spec` ",
    "CREATE TABLE `enclosure_health_spec` ( `sensor` VARCHAR(63) NOT NULL COLLATE NOCASE, "
    "`min_warn` INT NULL, `max_warn` INT NULL, `min_crit` INT NULL, `max_crit` INT NULL, "
    "PRIMARY KEY (`sensor`))",
    // 61 `rsync_share_option`
    "DROP TABLE IF EXISTS `rsync_share_option` ",
    "CREATE TABLE `rsync_share_option` ( `share_id` INT NOT NULL, `available` TINYINT NOT "
    "NULL DEFAULT 1, `passwordprotection` VARCHAR(45) NOT NULL COLLATE NOCASE, "
    "`rsync_access` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`share_id`))",
    // 62 `service_rsync`
    "DROP TABLE IF EXISTS `service_rsync` ",
    "CREATE TABLE `service_rsync` ( `enabled` INT NULL)",
    // 63 `service_tivo`
    "DROP TABLE IF EXISTS `service_tivo` ",
    "CREATE TABLE `service_tivo` ( `hour` VARCHAR(24) NULL COLLATE NOCASE, `minute` "
    "VARCHAR(24) NULL COLLATE NOCASE, `path` VARCHAR(255) NULL COLLATE NOCASE, `days` "
    "VARCHAR(128) NULL COLLATE NOCASE)",
    // 64 `service_vault`
    "DROP TABLE IF EXISTS `service_vault` ",
    "CREATE TABLE `service_vault` ( `enabled` INT NOT NULL, `name` VARCHAR(45) NULL COLLATE "
    "NOCASE, `password` VARCHAR(45) NULL COLLATE NOCASE, `defaultjob` VARCHAR(255) NULL "
    "COLLATE NOCASE)",
    // 65 `service_upnpd`
    "DROP TABLE IF EXISTS `service_upnpd` ",
    "CREATE TABLE `service_upnpd` ( `enabled` INT NOT NULL)",
    // 66 `tivo_mak`
    "DROP TABLE IF EXISTS `tivo_mak` ",
    "CREATE TABLE `tivo_mak` ( `name` VARCHAR(63) NOT NULL COLLATE NOCASE, `mak` VARCHAR(45) "
    "NOT NULL COLLATE NOCASE, PRIMARY KEY (`name`))",
    // 67 `rsync_user_password_acl`
    "DROP TABLE IF EXISTS `rsync_user_password_acl` ",
    "CREATE TABLE `rsync_user_password_acl` ( `share_id` INT NOT NULL, `user` VARCHAR(45) NOT "
    "NULL COLLATE NOCASE, `password` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY "
    "(`share_id`, `user`))",
    // 68 `_ups_health`
    "DROP TABLE IF EXISTS `_ups_health` ",
    "CREATE TEMPORARY TABLE `_ups_health` ( `name` VARCHAR(45) NOT NULL COLLATE NOCASE, "
    "`status` VARCHAR(45) NULL COLLATE NOCASE, `battery_charge` INT NULL, `battery_runtime` "
    "INT NULL, `load` INT NULL, `input_voltage` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY "
    "(`name`))",
    // 69 `ups_config`
    "DROP TABLE IF EXISTS `ups_config` ",
    "CREATE TABLE `ups_config` ( `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `driver` "
    "VARCHAR(45) NOT NULL COLLATE NOCASE, `port` VARCHAR(255) NOT NULL DEFAULT 'auto' "
    "COLLATE NOCASE, `description` VARCHAR(255) NULL COLLATE NOCASE, `shutdown_on_battery` "
    "INT NOT NULL DEFAULT 0, `shutdown_delay` INT NOT NULL DEFAULT 0, PRIMARY KEY (`name`))",
    // 70 `service_upsd`
    "DROP TABLE IF EXISTS `service_upsd` ",
    "CREATE TABLE `service_upsd` ( `enabled` INT NULL, `upsd_uname` VARCHAR(45) NULL COLLATE "
    "NOCASE, `upsd_passwd` VARCHAR(45) NULL COLLATE NOCASE, `listen1` VARCHAR(45) NULL "
    "COLLATE NOCASE, `listen2` VARCHAR(45) NULL COLLATE NOCASE, `allow_host` VARCHAR(45) "
    "NULL COLLATE NOCASE)",
    // 71 `process_on_share`
    "DROP TABLE IF EXISTS `process_on_share` ",
    "CREATE TABLE `process_on_share` ( `share_id` INT NOT NULL, `pid` INT NOT NULL, "
    "`blocking` INT NOT NULL, `ts` DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP, PRIMARY KEY "
    "(`share_id`, `pid`))",
    // 72 `$iscsi_lun_group`
    kIscsiLunGroup,
    // 73 `$iscsi_initiator`
    kIscsiInitiator,
    // 74 `service_smartnetwork`
    "DROP TABLE IF EXISTS `service_smartnetwork` ",
    "CREATE TABLE `service_smartnetwork` ( `enabled` INT NULL)",
    // 75 `service_http`
    "DROP TABLE IF EXISTS `service_http` ",
    "CREATE TABLE `service_http` ( `enabled` INT NOT NULL DEFAULT 1, `use_password` INT NOT "
    "NULL DEFAULT 0, `share_name` VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE, "
    "`http_admin` INT NOT NULL DEFAULT 0)",
    // 76 `service_https`
    "DROP TABLE IF EXISTS `service_https` ",
    "CREATE TABLE `service_https` ( `enabled` INT NULL, `port` INT NULL, `ssl_key_host` "
    "VARCHAR(45) NULL COLLATE NOCASE)",
    // 77 `_dictionary`
    "DROP TABLE IF EXISTS `_dictionary` ",
    "CREATE TEMPORARY TABLE `_dictionary` ( `id` VARCHAR(0) NOT NULL COLLATE BINARY, "
    "`lang_id` INT NOT NULL, `str` VARCHAR(1023) NOT NULL COLLATE NOCASE, PRIMARY KEY (`id`, "
    "`lang_id`))",
    // 78 `_lang_supported`
    "DROP TABLE IF EXISTS `_lang_supported` ",
    "CREATE TEMPORARY TABLE `_lang_supported` ( `id` INTEGER NOT NULL, `lang` VARCHAR(45) NOT "
    "NULL COLLATE NOCASE, `spell` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`id`))",
    // 79 `service_daap`
    "DROP TABLE IF EXISTS `service_daap` ",
    "CREATE TABLE `service_daap` ( `enabled` INT NULL DEFAULT 0, `sharename` VARCHAR(45) NULL "
    "DEFAULT 'My Share' COLLATE NOCASE, `password` VARCHAR(45) NULL COLLATE NOCASE, "
    "`directory` VARCHAR(255) NULL DEFAULT '/c/media/Music' COLLATE NOCASE)",
    // 80 `$iscsi_lun`
    kIscsiLun,
    // 81 `cifs_dfs_option`
    "DROP TABLE IF EXISTS `cifs_dfs_option` ",
    "CREATE TABLE `cifs_dfs_option` ( `share_id` INT NOT NULL, `volume` VARCHAR(45) NULL "
    "COLLATE NOCASE, `share` VARCHAR(45) NULL COLLATE NOCASE, `folder` VARCHAR(255) NOT NULL "
    "COLLATE NOCASE, `address` VARCHAR(45) NULL COLLATE NOCASE, `remote_share` VARCHAR(255) "
    "NULL COLLATE NOCASE, PRIMARY KEY (`share_id`, `folder`))",
    // 82 `service_anti_virus`
    "DROP TABLE IF EXISTS `service_anti_virus` ",
    "CREATE TABLE `service_anti_virus` ( `enabled` INT NOT NULL, `action` VARCHAR(45) NOT "
    "NULL COLLATE NOCASE, `ignore` INT NOT NULL DEFAULT 3)",
    // 83 `volume_schedule`
    "DROP TABLE IF EXISTS `volume_schedule` ",
    "CREATE TABLE `volume_schedule` ( `job_id` INT NOT NULL, `volume_id` VARCHAR(45) NOT NULL "
    "COLLATE NOCASE, `enabled` INT NOT NULL, `action` INT NOT NULL, `minute` VARCHAR(45) NOT "
    "NULL COLLATE NOCASE, `hour` VARCHAR(45) NOT NULL COLLATE NOCASE, `dayofmonth` "
    "VARCHAR(45) NOT NULL COLLATE NOCASE, `month` VARCHAR(45) NOT NULL COLLATE NOCASE, "
    "`dayofweek` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`job_id`))",
    // 84 `daap_share_option`
    "DROP TABLE IF EXISTS `daap_share_option` ",
    "CREATE TABLE `daap_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT "
    "NULL DEFAULT 1, PRIMARY KEY (`share_id`))",
    // 85 `$timemachine_quota`
    kTimemachineQuota,
    // 86 `$home_folder_snapshot_schedule`
    kHomeFolderSnapshotSchedule,
    // 87 `$home_folder`
    kHomeFolder,
    // 88 `$home_folder_snapshot`
    kHomeFolderSnapshot,
    // 89 `_hf_zfs_stat`
    "DROP TABLE IF EXISTS `_hf_zfs_stat` ",
    "CREATE TEMPORARY TABLE `_hf_zfs_stat` ( `user_id` INT NOT NULL, `used` BIGINT UNSIGNED "
    "NULL, `usedbysnapshots` BIGINT UNSIGNED NULL, PRIMARY KEY (`user_id`))",
    // 90 `_disk_enclosure`
    "DROP TABLE IF EXISTS `_disk_enclosure` ",
    "CREATE TEMPORARY TABLE `_disk_enclosure` ( `enclosure_id` INT NOT NULL, `slot` INT NOT "
    "NULL, `disk_info_id` VARCHAR(45) NULL COLLATE NOCASE, `devname` VARCHAR(45) NULL COLLATE "
    "NOCASE, PRIMARY KEY (`enclosure_id`, `slot`))",
    // 91 `_ups_config`
    "DROP TABLE IF EXISTS `_ups_config` ",
    "CREATE TEMPORARY TABLE `_ups_config` ( `name` VARCHAR(45) NOT NULL COLLATE NOCASE, "
    "`driver` VARCHAR(45) NOT NULL COLLATE NOCASE, `port` VARCHAR(255) NOT NULL DEFAULT "
    "'auto' COLLATE NOCASE, `description` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY "
    "(`name`))",
    // 92 `ssh_public_key` and its five indexes
    "DROP TABLE IF EXISTS `ssh_public_key` ",
    "CREATE TABLE `ssh_public_key` ( `id` INTEGER NOT NULL, `user_id` INT NOT NULL DEFAULT 0, "
    "`serve_for` VARCHAR(255) NOT NULL DEFAULT 'rsync' COLLATE NOCASE, `type` VARCHAR(255) "
    "NOT NULL COLLATE NOCASE, `key` VARCHAR(255) NOT NULL COLLATE NOCASE, `comment` "
    "VARCHAR(255) NULL COLLATE NOCASE, `fingerprint` VARCHAR(255) NOT NULL COLLATE NOCASE, "
    "`Title` VARCHAR(255) NOT NULL COLLATE NOCASE, UNIQUE (`user_id` ASC, `key` ASC), "
    "PRIMARY KEY (`id`))",
    "CREATE INDEX IF NOT EXISTS `ssh_public_key_key_INDEX` ON `ssh_public_key` (`key` ASC)",
    "CREATE INDEX IF NOT EXISTS `ssh_public_key_serve_for_INDEX` ON `ssh_public_key` "
    "(`serve_for` ASC)",
    "CREATE INDEX IF NOT EXISTS `ssh_public_key_user_id_INDEX` ON `ssh_public_key` (`user_id` "
    "ASC)",
    "CREATE INDEX IF NOT EXISTS `ssh_public_key_user_id_key_INDEX` ON `ssh_public_key` "
    "(`user_id` ASC, `key` ASC)",
    "CREATE INDEX IF NOT EXISTS `ssh_public_key_Title_INDEX` ON `ssh_public_key` (`Title` "
    "ASC)",
    // 93 `snapshot_management`
    "DROP TABLE IF EXISTS `snapshot_management` ",
    "CREATE TABLE `snapshot_management` ( `share_id` INT NOT NULL, `enabled` INT NOT NULL "
    "DEFAULT 0, `retention_rule` INT NOT NULL DEFAULT 1, `lifetime` INT NOT NULL DEFAULT "
    "2592000, `number` INT NOT NULL DEFAULT 30, `schedule` VARCHAR(255) NULL COLLATE NOCASE, "
    "`nonempty_snapshots` INT NULL DEFAULT 0, `prev_versions` INT NULL DEFAULT 0, PRIMARY KEY "
    "(`share_id`))",
    // 94 `smb_username_map` and its two indexes
    "DROP TABLE IF EXISTS `smb_username_map` ",
    "CREATE TABLE `smb_username_map` ( `id` INTEGER NOT NULL, `unix_uname` VARCHAR(45) NOT "
    "NULL COLLATE NOCASE, `smb_uname` VARCHAR(45) NOT NULL COLLATE NOCASE, `type` VARCHAR(45) "
    "NULL COLLATE NOCASE, UNIQUE (`smb_uname` ASC), UNIQUE (`unix_uname` ASC, `type` ASC), "
    "PRIMARY KEY (`id`))",
    "CREATE INDEX IF NOT EXISTS `smb_username_map_unix_uname_index` ON `smb_username_map` "
    "(`unix_uname` ASC)",
    "CREATE INDEX IF NOT EXISTS `smb_username_map_type_index` ON `smb_username_map` (`type` "
    "ASC)",
    // 95 `$vol_maint_log`
    kVolMaintLog,
    // 96 `replisync`
    "DROP TABLE IF EXISTS `replisync` ",
    "CREATE TABLE `replisync` ( `id` INTEGER NOT NULL, `name` VARCHAR(63) NOT NULL COLLATE "
    "NOCASE, `enabled` INT NULL, `source_host` VARCHAR(63) NULL COLLATE NOCASE, "
    "`source_port` INT NULL, `source_path` VARCHAR(254) NULL COLLATE NOCASE, `dest_host` "
    "VARCHAR(63) NULL COLLATE NOCASE, `dest_port` INT NULL, `dest_path` VARCHAR(254) NULL "
    "COLLATE NOCASE, `interval` INT NULL, `bw_limit` INT NULL, `encrypt` INT NULL, "
    "`compress` VARCHAR(45) NULL COLLATE NOCASE, `schedule` VARCHAR(254) NULL COLLATE NOCASE, "
    "UNIQUE (`id` ASC), UNIQUE (`name` ASC), PRIMARY KEY (`id`))",
    // 97 `replisync_key`
    "DROP TABLE IF EXISTS `replisync_key` ",
    "CREATE TABLE `replisync_key` ( `id` INTEGER NOT NULL, `title` VARCHAR(255) NOT NULL "
    "COLLATE NOCASE, `type` VARCHAR(255) NOT NULL COLLATE NOCASE, `key` VARCHAR(255) NOT NULL "
    "COLLATE NOCASE, `fingerprint` VARCHAR(255) NOT NULL COLLATE NOCASE, PRIMARY KEY "
    "(`id`))",
    nullptr,
};

// ---- the upgrade steps -----------------------------------------------------
// A rebuild is four statements: rename the stored table to its old copy
// ("$name" -> "name_old"), create the new shape, copy the kept columns, drop
// the old copy.

namespace {

// The shape `$snapshot` had from version 1 to version 5: without
// `exported_as_share` and without the unique (zfs_name, name) pair.
constexpr const char kSnapshotV2[] =
    "CREATE TABLE IF NOT EXISTS `$snapshot`" KSDB_SNAPSHOT_COLUMNS_HEAD ", PRIMARY KEY (`id`))";

// Version 11: `$user` before `is_locked` and `shell_access`, `$group` whose
// names were unique.
constexpr const char kUserV11[] = "CREATE TABLE `$user`" KSDB_USER_COLUMNS_HEAD("NOCASE")
    ", PRIMARY KEY (`id`))";
constexpr const char kGroupV11[] = "CREATE TABLE `$group`" KSDB_GROUP_COLUMNS_HEAD("NOCASE")
    ", UNIQUE (`gname` ASC), PRIMARY KEY (`id`))";

// Version 13: `$iscsi_lun_group` before its names and targets were unique.
constexpr const char kIscsiLunGroupV13[] =
    "CREATE TABLE IF NOT EXISTS `$iscsi_lun_group`" KSDB_ISCSI_LUN_GROUP_COLUMNS_HEAD
    ", PRIMARY KEY (`name`))";

// Version 15: `$home_folder` before `prev_versions`, `$home_folder_snapshot`
// before `used`.
constexpr const char kHomeFolderV15[] = "CREATE TABLE IF NOT EXISTS `$home_folder`"
    KSDB_HOME_FOLDER_COLUMNS_HEAD ", PRIMARY KEY (`user_id`))";
constexpr const char kHomeFolderSnapshotV15[] =
    "CREATE TABLE IF NOT EXISTS `$home_folder_snapshot`" KSDB_HOME_FOLDER_SNAPSHOT_COLUMNS_HEAD
    ", PRIMARY KEY (`id`))";

#define KSDB_USER_COPY_COLUMNS                                                        \
    "id,uname,passwd,fullname,email,home,group_id,shell,is_privileged,last_changed,rid," \
    "dn,is_locked,shell_access"

const char *const kStep0[] = {nullptr};

const char *const kStep1[] = {
    "ALTER TABLE `$snapshot`ADD COLUMN `used` BIGINT NULL ",
    kLog,
    nullptr,
};

const char *const kStep2[] = {
    "DROP TABLE IF EXISTS `$snapshot` ",
    kSnapshotV2,
    nullptr,
};

const char *const kStep3[] = {
    "DROP TABLE IF EXISTS `$snapshot` ",
    nullptr,
};

const char *const kStep4[] = {
    "DROP TABLE IF EXISTS `snapshot` ",
    kSnapshotV2,
    kVolumeSpares,
    nullptr,
};

const char *const kStep5[] = {
    "CREATE TABLE `$registry`" KSDB_REGISTRY_COLUMNS,
    "CREATE TABLE `$replicate_share_option` (`share_id` INT NOT NULL,`job_id` VARCHAR(45) NOT "
    "NULL DEFAULT '' COLLATE NOCASE)",
    nullptr,
};

const char *const kStep6[] = {
    "CREATE TABLE `$snapshot_clones`" KSDB_SNAPSHOT_CLONES_COLUMNS,
    "ALTER TABLE `$snapshot`ADD COLUMN `exported_as_share` INT NULL ",
    nullptr,
};

const char *const kStep7[] = {
    "DROP TABLE IF EXISTS `$replicate_share_option` ",
    "CREATE TABLE `$application_on_share`" KSDB_APPLICATION_ON_SHARE_COLUMNS,
    nullptr,
};

const char *const kStep8[] = {
    "CREATE TABLE `$kestravad`" KSDB_KESTRAVAD_COLUMNS,
    nullptr,
};

const char *const kStep9[] = {
    "CREATE TABLE `$iscsi_lun_group_access`" KSDB_ISCSI_LUN_GROUP_ACCESS_COLUMNS,
    nullptr,
};

const char *const kStep10[] = {
    "CREATE TABLE `$disk_info`" KSDB_DISK_INFO_COLUMNS,
    nullptr,
};

const char *const kStep11[] = {
    kUserV11,
    "CREATE INDEX `$user_rid` ON `$user` (`rid` ASC)",
    kGroupV11,
    "CREATE TABLE `$group_has_user`" KSDB_GROUP_HAS_USER_COLUMNS,
    "CREATE INDEX `$group_rid` ON `$group` (`rid` ASC)",
    nullptr,
};

// Removes duplicate snapshot rows and renumbers them.
const char *const kStep12[] = {
    "ALTER TABLE `$snapshot` RENAME TO `snapshot_old` ",
    kSnapshot,
    "INSERT INTO `$snapshot` (zfs_name,name,type,created_on,used,exported_as_share) SELECT "
    "DISTINCT zfs_name,name,type,created_on,used,exported_as_share FROM `snapshot_old` ",
    "DROP TABLE `snapshot_old` ",
    nullptr,
};

const char *const kStep13[] = {
    kIscsiLunGroupV13,
    kIscsiInitiator,
    nullptr,
};

const char *const kStep14[] = {
    "CREATE TABLE `$iscsi_lun`" KSDB_ISCSI_LUN_COLUMNS,
    "ALTER TABLE `$iscsi_lun_group` RENAME TO `iscsi_lun_group_old` ",
    "CREATE TABLE `$iscsi_lun_group`" KSDB_ISCSI_LUN_GROUP_COLUMNS_HEAD
    ", UNIQUE (`name` ASC), UNIQUE (`target` ASC), PRIMARY KEY (`name`))",
    "INSERT INTO `$iscsi_lun_group` (name,target,all_hosts,chap_auth,chap_secret) SELECT "
    "name,target,all_hosts,chap_auth,chap_secret FROM `iscsi_lun_group_old` ",
    "DROP TABLE `iscsi_lun_group_old` ",
    nullptr,
};

const char *const kStep15[] = {
    "ALTER TABLE `$user`ADD COLUMN `is_locked` TINYINT(1) NOT NULL DEFAULT 0",
    kTimemachineQuota,
    kHomeFolderSnapshotSchedule,
    kHomeFolderV15,
    kHomeFolderSnapshotV15,
    nullptr,
};

const char *const kStep16[] = {
    "ALTER TABLE `$home_folder_snapshot` RENAME TO `home_folder_snapshot_old` ",
    "CREATE TABLE `$home_folder_snapshot`" KSDB_HOME_FOLDER_SNAPSHOT_COLUMNS_HEAD
    ", `used` BIGINT NULL, PRIMARY KEY (`id`))",
    "INSERT INTO `$home_folder_snapshot` (id,user_name,home_dir,name,type,created_on) SELECT "
    "id,user_name,home_dir,name,type,created_on FROM `home_folder_snapshot_old` ",
    "DROP TABLE `home_folder_snapshot_old` ",
    nullptr,
};

// Only the version number moves.
const char *const kStep17[] = {nullptr};

// Group names stop being unique: a domain group may carry a local group's name.
const char *const kStep18[] = {
    "ALTER TABLE `$group` RENAME TO `group_old` ",
    "CREATE TABLE `$group`" KSDB_GROUP_COLUMNS_HEAD("NOCASE") ", PRIMARY KEY (`id`))",
    "INSERT INTO `$group` (id,gname,is_privileged,rid,dn) SELECT id,gname,is_privileged,rid,dn "
    "FROM `group_old` ",
    "DROP TABLE `group_old` ",
    kGroupRid,
    nullptr,
};

const char *const kStep19[] = {
    "ALTER TABLE `$user`ADD COLUMN `shell_access` TINYINT(1) NOT NULL DEFAULT 0",
    nullptr,
};

const char *const kStep20[] = {
    "ALTER TABLE `$home_folder` RENAME TO `home_folder_old` ",
    "CREATE TABLE `$home_folder`" KSDB_HOME_FOLDER_COLUMNS_HEAD
    ", `prev_versions` INT NULL, PRIMARY KEY (`user_id`))",
    "INSERT INTO `$home_folder` (user_id,snapshot_protection_enabled,quota,visible_snapdir) "
    "SELECT user_id,snapshot_protection_enabled,quota,visible_snapdir FROM `home_folder_old` ",
    "DROP TABLE `home_folder_old` ",
    nullptr,
};

const char *const kStep21[] = {
    kVolMaintLog,
    nullptr,
};

// Group and user names become case-sensitive.
const char *const kStep22[] = {
    "ALTER TABLE `$group` RENAME TO `group_old` ",
    "CREATE TABLE `$group`" KSDB_GROUP_COLUMNS_HEAD("BINARY") ", PRIMARY KEY (`id`))",
    "INSERT INTO `$group` (id,gname,is_privileged,rid,dn) SELECT id,gname,is_privileged,rid,dn "
    "FROM `group_old` ",
    "DROP TABLE `group_old` ",
    "ALTER TABLE `$user` RENAME TO `user_old` ",
    "CREATE TABLE `$user`" KSDB_USER_COLUMNS("BINARY"),
    "INSERT INTO `$user` (" KSDB_USER_COPY_COLUMNS ") SELECT " KSDB_USER_COPY_COLUMNS
    " FROM `user_old` ",
    "DROP TABLE `user_old` ",
    kGroupRid,
    kUserRid,
    nullptr,
};

// User names compare without regard to case again; group names stay
// case-sensitive.
const char *const kStep23[] = {
    "ALTER TABLE `$user` RENAME TO `user_old` ",
    "CREATE TABLE `$user`" KSDB_USER_COLUMNS("NOCASE"),
    "INSERT INTO `$user` (" KSDB_USER_COPY_COLUMNS ") SELECT " KSDB_USER_COPY_COLUMNS
    " FROM `user_old` ",
    "DROP TABLE `user_old` ",
    kUserRid,
    nullptr,
};

}  // namespace

// ---- the index additions -----------------------------------------------------
// Each serves statements that run once per share or access entry; without
// it such a statement reads a whole table (or every entry of a protocol)
// for each row, and the work grows with the square of the shares.

const char *const kIndexes[] = {
    // The access entries of one share and protocol (the per-share list
    // queries, the per-share deletes of an import).  The entry's account
    // completes the index so that a question for the accounts is answered
    // from the index alone; without it the planner prefers the primary key,
    // which begins with the protocol and so holds every share's entries.
    // host_acl needs none: its primary key is (share_id, proto, host_id).
    "CREATE INDEX IF NOT EXISTS `user_acl_share_proto` ON `user_acl` (`share_id` ASC, "
    "`proto` ASC, `user_id` ASC)",
    "CREATE INDEX IF NOT EXISTS `group_acl_share_proto` ON `group_acl` (`share_id` ASC, "
    "`proto` ASC, `group_id` ASC)",
    // Accounts by name, local or domain ("... WHERE uname=%Q AND rid IS
    // NULL"): the access entries an import writes, the force user of each
    // share.  With the name alone the planner would pick `$user_rid`, which
    // finds every local account.
    "CREATE INDEX IF NOT EXISTS `$user_uname` ON `$user` (`uname` ASC, `rid` ASC)",
    "CREATE INDEX IF NOT EXISTS `$group_gname` ON `$group` (`gname` ASC, `rid` ASC)",
    // Users by primary group: the cloud users (groups 97 and 98) every
    // imported share grants its access to.
    "CREATE INDEX IF NOT EXISTS `$user_group_id` ON `$user` (`group_id` ASC)",
    // The members of a group (the group file of the account export).
    "CREATE INDEX IF NOT EXISTS `$group_has_user_group_id` ON `$group_has_user` (`group_id` "
    "ASC, `user_id` ASC)",
    nullptr,
};

const char *const *const kUpgrades[kVersion + 1] = {
    kStep0,  kStep1,  kStep2,  kStep3,  kStep4,  kStep5,  kStep6,  kStep7,
    kStep8,  kStep9,  kStep10, kStep11, kStep12, kStep13, kStep14, kStep15,
    kStep16, kStep17, kStep18, kStep19, kStep20, kStep21, kStep22, kStep23,
};

}  // namespace ksdb::schema
