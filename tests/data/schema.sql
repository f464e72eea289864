-- The schema of a fresh database after ksdb_create (schema version 23), as
-- SQLite keeps it: one statement per line, in creation order; "-- [main]"
-- holds the stored and mirror tables with their indexes (sqlite_master),
-- "-- [temp]" the connection's scratch tables (sqlite_temp_master).  An
-- upgraded database must end with the same statements.  Lines marked
-- "-- chosen:" precede tables of areas this library does not specify; their
-- shapes are the library's own choice, pinned here so that a change to them
-- is a deliberate edit.
-- [main]
CREATE TABLE `share` ( `id` INTEGER NOT NULL, `zfs_name` VARCHAR(45) NOT NULL COLLATE NOCASE, `type` VARCHAR(45) NULL COLLATE NOCASE, `volume_id` VARCHAR(45) NULL COLLATE NOCASE, `usb_storage_id` INT NULL, `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `path` VARCHAR(255) NOT NULL COLLATE NOCASE, `comment` VARCHAR(255) NULL COLLATE NOCASE, `user_access` INT NULL, `group_access` INT NULL, `everyone_access` INT NULL, `non_owner_delete` TINYINT(1) NULL, `user_id` INT NOT NULL, `group_id` INT NOT NULL, `migrate_to_volume_id` VARCHAR(45) NULL COLLATE NOCASE, `visible_snapdir` VARCHAR(45) NULL COLLATE NOCASE, `update_ts` DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP, UNIQUE (`name` ASC), PRIMARY KEY (`id`));
CREATE TABLE `user_acl` ( `share_id` INT NOT NULL, `user_id` INT NOT NULL, `proto` VARCHAR(45) NOT NULL COLLATE NOCASE, `read` TINYINT(1) NOT NULL, `write` TINYINT(1) NOT NULL, PRIMARY KEY (`proto`, `user_id`, `share_id`));
CREATE TABLE `$user` ( `id` INT NOT NULL, `uname` VARCHAR(45) NOT NULL COLLATE NOCASE, `passwd` VARCHAR(45) NULL COLLATE NOCASE, `fullname` VARCHAR(45) NULL COLLATE NOCASE, `email` VARCHAR(255) NULL COLLATE NOCASE, `home` VARCHAR(45) NULL COLLATE NOCASE, `group_id` INT NULL, `shell` VARCHAR(45) NULL COLLATE NOCASE, `is_privileged` TINYINT(1) NOT NULL, `last_changed` VARCHAR(45) NULL COLLATE NOCASE, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE NOCASE, `is_locked` TINYINT(1) NOT NULL DEFAULT 0, `shell_access` TINYINT(1) NOT NULL DEFAULT 0, PRIMARY KEY (`id`));
CREATE INDEX `$user_rid` ON `$user` (`rid` ASC);
CREATE TABLE `host_acl` ( `share_id` INT NOT NULL, `host_id` INT NOT NULL, `proto` VARCHAR(45) NOT NULL COLLATE NOCASE, `read` TINYINT(1) NOT NULL, `write` TINYINT(1) NOT NULL, `root` TINYINT(1) NOT NULL DEFAULT 0, PRIMARY KEY (`share_id`, `proto`, `host_id`));
CREATE TABLE `readonly_host` ( `share_id` INT NOT NULL, `hosts` VARCHAR(255) NOT NULL COLLATE NOCASE, `proto` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`hosts`, `proto`));
CREATE TABLE `cifs_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT NULL DEFAULT 1, `cifs_access` VARCHAR(45) NOT NULL COLLATE NOCASE, `cifs_guest_access` TINYINT(1) NULL, `cifs_hide_share` TINYINT(1) NULL, `cifs_group_create_mask` INT NULL, `cifs_everyone_create_mask` INT NULL, `cifs_enable_masks` TINYINT(1) NULL, `cifs_group_directory_mask` INT NULL, `cifs_everyone_directory_mask` INT NULL, `cifs_enable_forced_minimum` TINYINT(1) NULL, `cifs_recycle` TINYINT(1) NULL, `cifs_recycle_mb_limit` INT NULL, `cifs_recycle_age_limit` INT NULL, `oplocks` TINYINT(1) NULL, `force_user` INT NULL, `cifs_enabledfs` INT NULL, PRIMARY KEY (`share_id`));
CREATE TABLE `afp_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT NULL DEFAULT 1, `afp_access` VARCHAR(45) NOT NULL COLLATE NOCASE, `afp_guest_access` INT NOT NULL, `afp_fperm` INT NULL, `afp_dperm` INT NULL, `other_options` LONGTEXT NULL, `force_user` INT NULL, PRIMARY KEY (`share_id`));
-- chosen: HTTP shares
CREATE TABLE `http_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT NULL DEFAULT 1, `http_access` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`share_id`));
CREATE TABLE `nfs_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT NULL DEFAULT 1, `nfs_access` VARCHAR(45) NOT NULL COLLATE NOCASE, `nfs_sync` TINYINT(1) NOT NULL DEFAULT 0, `other_options` LONGTEXT NULL, PRIMARY KEY (`share_id`));
CREATE TABLE `user_quota` ( `user_id` INT NOT NULL, `share_id` INT NOT NULL, `mb_soft` BIGINT UNSIGNED NULL, `mb_hard` BIGINT UNSIGNED NULL, PRIMARY KEY (`user_id`, `share_id`));
CREATE TABLE `$group` ( `id` INT NOT NULL, `gname` VARCHAR(45) NOT NULL COLLATE BINARY, `is_privileged` TINYINT(1) NOT NULL, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY (`id`));
CREATE INDEX `$group_rid` ON `$group` (`rid` ASC);
CREATE TABLE `group_acl` ( `share_id` INT NOT NULL, `group_id` INT NOT NULL, `proto` VARCHAR(45) NOT NULL COLLATE NOCASE, `read` TINYINT(1) NOT NULL, `write` TINYINT(1) NOT NULL, PRIMARY KEY (`proto`, `share_id`, `group_id`));
CREATE TABLE `$group_has_user` ( `user_id` INT NOT NULL, `group_id` INT NOT NULL, PRIMARY KEY (`user_id`, `group_id`));
CREATE TABLE `host` ( `id` INTEGER NOT NULL, `name` VARCHAR(255) NOT NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY KEY (`id`));
CREATE TABLE `group_quota` ( `group_id` INT NOT NULL, `share_id` INT NOT NULL, `mb_soft` BIGINT UNSIGNED NULL, `mb_hard` BIGINT UNSIGNED NULL, PRIMARY KEY (`group_id`, `share_id`));
CREATE TABLE `backup` ( `id` INTEGER NOT NULL, `name` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `enabled` INT NOT NULL DEFAULT 0, `sch_every` INT NOT NULL DEFAULT 0, `sch_start` INT NOT NULL DEFAULT 23, `sch_end` INT NOT NULL DEFAULT 24, `sch_dow` INT NULL, `src_type` VARCHAR(63) NOT NULL DEFAULT 'local' COLLATE NOCASE, `src_share_proto` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `src_path` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `src_login` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `src_password` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `src_port` INT NULL, `src_eject` INT NULL, `dst_type` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `dst_share_proto` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `dst_path` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `dst_login` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `dst_password` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `dst_port` INT NULL, `dst_eject` INT NULL, `opt_full_backup_freq` VARCHAR(45) NULL COLLATE NOCASE, `opt_remove_previous_backup` INT NULL, `opt_chown_to_share_owner` INT NULL, `opt_rsync_options` INT NULL, `opt_email_this_to_alert_email` INT NULL, `opt_rsync_exclude` VARCHAR(65535) NOT NULL DEFAULT '' COLLATE NOCASE, `opt_misc_option` INT NULL, `wol_addr` VARCHAR(31) NOT NULL DEFAULT '' COLLATE NOCASE, PRIMARY KEY (`id`));
-- chosen: media services
CREATE TABLE `dlna_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT NULL DEFAULT 1, PRIMARY KEY (`share_id`));
CREATE TABLE `service_dlna` ( `enabled` INT NULL DEFAULT 0, `port` INT NOT NULL DEFAULT 8200, `friendly_name` VARCHAR(63) NULL DEFAULT NULL COLLATE NOCASE, `album_art_names` VARCHAR(1023) NOT NULL DEFAULT 'Cover.jpg/cover.jpg/AlbumArtSmall.jpg/albumartsmall.jpg/AlbumArt.jpg/albumart.jpg/Album.jpg/album.jpg/Folder.jpg/folder.jpg/AlbumArt_{*/Thumb.jpg/thumb.jpg' COLLATE NOCASE, `inotify` INT NOT NULL DEFAULT 1, `enable_tivo_server` INT NOT NULL DEFAULT 0, `presentation_url` VARCHAR(511) NULL DEFAULT NULL COLLATE NOCASE, `notify_interval` INT NOT NULL DEFAULT 900, `serial` VARCHAR(63) NULL DEFAULT NULL COLLATE NOCASE, `model_number` VARCHAR(63) NULL DEFAULT NULL COLLATE NOCASE, `db_dir` VARCHAR(63) NULL DEFAULT NULL COLLATE NOCASE, `enable_tivo_archiver` INT NOT NULL DEFAULT 0, `user_home_directory` INT NULL DEFAULT 0);
CREATE TABLE `account_default` ( `home_volume_id` VARCHAR(45) NOT NULL DEFAULT 0 COLLATE NOCASE, `diskquota_warn` INT NOT NULL DEFAULT 0, `group_id` INT NOT NULL DEFAULT 0, `disallow_password_change` INT NOT NULL DEFAULT 0, `home_folder_capacity_limit` INT NOT NULL DEFAULT 0, `group_membership` VARCHAR(45) NOT NULL DEFAULT 0 COLLATE NOCASE, `private_time_machine` INT NOT NULL DEFAULT 0, `private_time_machine_space` INT NOT NULL DEFAULT 0, `snapshot_protection` INT NOT NULL DEFAULT 0, `next_uid` INT NOT NULL DEFAULT 100);
CREATE TABLE `passwordrecovery` ( `email` VARCHAR(255) NOT NULL DEFAULT '' COLLATE NOCASE, `question` VARCHAR(255) NOT NULL DEFAULT '' COLLATE NOCASE, `answer` VARCHAR(255) NOT NULL DEFAULT '' COLLATE NOCASE, `enabled` INT NULL DEFAULT 0, `method` VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE);
-- chosen: USB storage devices
CREATE TABLE `usb_storage` ( `id` INTEGER NOT NULL, `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `devname` VARCHAR(45) NULL COLLATE NOCASE, `fs_type` VARCHAR(45) NULL COLLATE NOCASE, `vendor` VARCHAR(63) NULL COLLATE NOCASE, `model` VARCHAR(63) NULL COLLATE NOCASE, `serial` VARCHAR(63) NULL COLLATE NOCASE, `kb_size` BIGINT NULL, `usb_port_id` INT NULL, `mount_point` VARCHAR(255) NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY KEY (`id`));
CREATE TABLE `network_if` ( `name` VARCHAR(31) NOT NULL COLLATE NOCASE, `mac` VARCHAR(45) NOT NULL COLLATE NOCASE, `protocol` VARCHAR(45) NULL COLLATE NOCASE, `ip` VARCHAR(45) NULL COLLATE NOCASE, `dns1` VARCHAR(45) NULL COLLATE NOCASE, `dns2` VARCHAR(45) NULL COLLATE NOCASE, `gateway` VARCHAR(45) NULL COLLATE NOCASE, `subnet` VARCHAR(45) NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY KEY (`name`));
CREATE TABLE `service_avahi` ( `enabled` INT NOT NULL, `cifs` INT NOT NULL, `afp` INT NOT NULL, `quillfold` INT NOT NULL, `printer` INT NOT NULL, `kestrava` INT NOT NULL, `timemachine` INT NOT NULL);
CREATE TABLE `vital_product_data` ( `vendor` VARCHAR(31) NULL COLLATE NOCASE, `model` VARCHAR(31) NULL COLLATE NOCASE, `serial` VARCHAR(31) NULL COLLATE NOCASE, `max_chan` INT NULL, `autospan` INT NULL);
CREATE TABLE `service_misc` ( `key` VARCHAR(96) NOT NULL COLLATE NOCASE, `val` VARCHAR(1023) NOT NULL DEFAULT '' COLLATE NOCASE, `table_name` VARCHAR(45) NULL COLLATE NOCASE, `column_name` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`key`));
CREATE TABLE `service_cifs` ( `enabled` INT NULL, `security` VARCHAR(45) NULL COLLATE NOCASE, `oplocks` INT NULL, `map_to_guest` VARCHAR(45) NULL COLLATE NOCASE, `workgroup` VARCHAR(45) NULL COLLATE NOCASE, `realm` VARCHAR(45) NULL COLLATE NOCASE, `orgunit` VARCHAR(45) NULL COLLATE NOCASE, `restrict_ou` VARCHAR(45) NULL COLLATE NOCASE, `domain_admin_user` VARCHAR(45) NULL COLLATE NOCASE, `domain_admin_gid` INT NULL, `domain_admin_uid` INT NULL, `domain_sid` VARCHAR(45) NULL COLLATE NOCASE, `password_server` VARCHAR(45) NULL COLLATE NOCASE, `allow_trusted_domains` INT NULL, `user_home_directory` INT NOT NULL, `user_home_directory_recycle` INT NULL, `user_home_directory_recycle_max_days` INT NULL, `user_home_directory_recycle_max_size` INT NULL, `no_sync_ads` INT NULL, `hostname_lookups` INT NULL, `join_ads_failed` INT NULL, `idmap_backend` VARCHAR(45) NULL DEFAULT 'rid' COLLATE NOCASE);
CREATE TABLE `service_afp` ( `enabled` INT NULL, `user_home_directory` INT NULL DEFAULT 0);
-- chosen: USB storage devices
CREATE TABLE `usb_port` ( `id` INTEGER NOT NULL, `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `bus_path` VARCHAR(255) NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY KEY (`id`));
CREATE TABLE `backup_protocol` ( `id` INTEGER NOT NULL, `proto` VARCHAR(15) NOT NULL COLLATE NOCASE, `readonly` INT NOT NULL, UNIQUE (`proto` ASC), PRIMARY KEY (`id`));
CREATE TABLE `backup_button_jobs` ( `order` INT NOT NULL, `backup_id` INT NULL, PRIMARY KEY (`order`));
CREATE TABLE `system_config` ( `raid_mode` VARCHAR(45) NULL COLLATE NOCASE);
-- chosen: disks and enclosures
CREATE TABLE `$disk_info` ( `id` VARCHAR(45) NOT NULL COLLATE NOCASE, `vendor` VARCHAR(63) NULL COLLATE NOCASE, `model` VARCHAR(63) NULL COLLATE NOCASE, `serial` VARCHAR(63) NULL COLLATE NOCASE, `firmware` VARCHAR(45) NULL COLLATE NOCASE, `kb_size` BIGINT NULL, `first_seen` INT NULL, `last_seen` INT NULL, PRIMARY KEY (`id`));
-- chosen: disks and enclosures
CREATE TABLE `disk_port` ( `id` INTEGER NOT NULL, `enclosure_id` INT NULL, `slot` INT NOT NULL, `devname` VARCHAR(45) NULL COLLATE NOCASE, `disk_info_id` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`id`));
CREATE TABLE `$snapshot` ( `id` INTEGER NOT NULL, `zfs_name` VARCHAR(45) NOT NULL COLLATE NOCASE, `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `type` INT NOT NULL, `created_on` INT NOT NULL, `used` BIGINT NULL, `exported_as_share` INT NULL, UNIQUE (`zfs_name` ASC, `name` ASC), PRIMARY KEY (`id`));
-- chosen: FTP shares
CREATE TABLE `ftp_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT NULL DEFAULT 1, `ftp_access` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`share_id`));
CREATE TABLE `service_ftp` ( `enabled` INT NULL DEFAULT 0, `port` INT NULL DEFAULT 21, `auth_mode` VARCHAR(45) NULL DEFAULT 'user' COLLATE NOCASE, `passive_range_min` INT NULL DEFAULT 32768, `passive_range_max` INT NULL DEFAULT 65535, `enable_masquerade` INT NOT NULL DEFAULT 0, `masquerade` VARCHAR(63) NOT NULL DEFAULT '' COLLATE NOCASE, `upload_resume` INT NOT NULL DEFAULT 0, `user_home_directory` INT NOT NULL DEFAULT 0, `ftps` INT NOT NULL DEFAULT 0, `server_transfer_log` INT NOT NULL DEFAULT 0, `max_upload_rate` INT NULL DEFAULT 0, `max_download_rate` INT NULL DEFAULT 0, `force_ftps` INT NOT NULL DEFAULT 0, `use_reverse_dns` INT NOT NULL DEFAULT 0);
CREATE TABLE `service_nfs` ( `enabled` INT NULL, `user_home_directory` INT NULL DEFAULT 0, `threads` INT NULL DEFAULT 0, `nfsv4` INT NULL DEFAULT 0, `domain` VARCHAR(45) NULL COLLATE NOCASE);
CREATE TABLE `snapshot_schedule` ( `share_id` INT NOT NULL, `enabled` INT NOT NULL, `minute` VARCHAR(45) NULL COLLATE NOCASE, `hour` VARCHAR(45) NULL COLLATE NOCASE, `day_of_month` VARCHAR(45) NULL COLLATE NOCASE, `day_of_week` VARCHAR(45) NULL COLLATE NOCASE, `month` VARCHAR(45) NULL COLLATE NOCASE, `last_taken` INT NULL, `purge_manual_snapshot` VARCHAR(45) NULL COLLATE NOCASE, `temporary_disable` INT NULL, `last_daily_taken` INT NOT NULL DEFAULT 0, `last_weekly_taken` INT NOT NULL DEFAULT 0, PRIMARY KEY (`share_id`));
CREATE TABLE `zvol_share_option` ( `share_id` INT NULL, `kb_size` BIGINT NULL, `is_sparse` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`share_id`));
CREATE TABLE `service_snmp` ( `enabled` INT NOT NULL DEFAULT 0, `allow_host` VARCHAR(45) NOT NULL DEFAULT 'default' COLLATE NOCASE, `community` VARCHAR(45) NOT NULL DEFAULT 'public' COLLATE NOCASE, `trap_destination` VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE, `contact` VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE, `location` VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE);
CREATE TABLE `$log` ( `id` INTEGER NOT NULL, `tstamp` INT NOT NULL, `severity` VARCHAR(45) NOT NULL COLLATE NOCASE, `category` VARCHAR(45) NOT NULL COLLATE NOCASE, `msg_tag` VARCHAR(45) NOT NULL COLLATE NOCASE, `msg_args_xml` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`id`));
CREATE TABLE `zfs_attr` ( `share_id` INT NOT NULL, `mb_quota` BIGINT NULL, `mb_reservation` BIGINT NULL, `mb_refquota` BIGINT NULL, `mb_refreservation` BIGINT NULL, `compression` INT NULL, `dedup` INT NULL, `logbias` VARCHAR(45) NULL COLLATE NOCASE, `origin` VARCHAR(45) NULL COLLATE NOCASE, `sync` VARCHAR(45) NULL COLLATE NOCASE, `dedup_auto_disabling` INT NULL, `bit_rot_protection` INT NULL, PRIMARY KEY (`share_id`));
CREATE TABLE `$volume_spares` ( `id` INTEGER NOT NULL, `disk_info_id` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`id`));
-- chosen: disks and enclosures
CREATE TABLE `disk_enclosure` ( `id` INTEGER NOT NULL, `name` VARCHAR(63) NOT NULL COLLATE NOCASE, `vendor` VARCHAR(63) NULL COLLATE NOCASE, `model` VARCHAR(63) NULL COLLATE NOCASE, `serial` VARCHAR(63) NULL COLLATE NOCASE, `slots` INT NOT NULL DEFAULT 0, PRIMARY KEY (`id`));
CREATE TABLE `$registry` ( `key` INT NOT NULL, `value` VARCHAR(1023) NOT NULL DEFAULT '' COLLATE NOCASE, PRIMARY KEY (`key`));
-- chosen: disks and enclosures
CREATE TABLE `jbod_port` ( `id` INTEGER NOT NULL, `enclosure_id` INT NOT NULL, `port` INT NOT NULL, `devname` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`id`));
CREATE TABLE `$snapshot_clones` ( `id` INTEGER NOT NULL, `cloned_zfs_name` VARCHAR(45) NULL COLLATE NOCASE, `parent_snapshot_name` VARCHAR(45) NULL COLLATE NOCASE, `parent_zfs_name` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`id`));
CREATE TABLE `$application_on_share` ( `zfs_name` VARCHAR(45) NOT NULL COLLATE NOCASE, `app_name` VARCHAR(45) NOT NULL COLLATE NOCASE, `app_data` VARCHAR(65534) NULL COLLATE NOCASE, PRIMARY KEY (`zfs_name`, `app_name`));
CREATE TABLE `$kestravad` ( `started_on` INT NOT NULL DEFAULT 0, `stopped_on` INT NOT NULL DEFAULT 0, `version` VARCHAR(45) NOT NULL DEFAULT '1.0.0' COLLATE NOCASE);
CREATE TABLE `service_ssh` ( `enabled` INT NULL, `port` INT NULL, `ui_enabled` INT NULL, `remote_enabled` INT NULL, `remote_port` INT NULL, `password_authentication` INT NOT NULL DEFAULT 1);
CREATE TABLE `$iscsi_lun_group_access` ( `lun_group` VARCHAR(255) NOT NULL COLLATE NOCASE, `initiator` VARCHAR(255) NOT NULL COLLATE NOCASE);
CREATE TABLE `service_replicate` ( `enabled` INT NULL, `owner` VARCHAR(255) NULL COLLATE NOCASE, `priv_data` VARCHAR(255) NULL COLLATE NOCASE);
-- chosen: disks and enclosures
CREATE TABLE `enclosure_health_spec` ( `sensor` VARCHAR(63) NOT NULL COLLATE NOCASE, `min_warn` INT NULL, `max_warn` INT NULL, `min_crit` INT NULL, `max_crit` INT NULL, PRIMARY KEY (`sensor`));
CREATE TABLE `rsync_share_option` ( `share_id` INT NOT NULL, `available` TINYINT NOT NULL DEFAULT 1, `passwordprotection` VARCHAR(45) NOT NULL COLLATE NOCASE, `rsync_access` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`share_id`));
CREATE TABLE `service_rsync` ( `enabled` INT NULL);
CREATE TABLE `service_tivo` ( `hour` VARCHAR(24) NULL COLLATE NOCASE, `minute` VARCHAR(24) NULL COLLATE NOCASE, `path` VARCHAR(255) NULL COLLATE NOCASE, `days` VARCHAR(128) NULL COLLATE NOCASE);
CREATE TABLE `service_vault` ( `enabled` INT NOT NULL, `name` VARCHAR(45) NULL COLLATE NOCASE, `password` VARCHAR(45) NULL COLLATE NOCASE, `defaultjob` VARCHAR(255) NULL COLLATE NOCASE);
CREATE TABLE `service_upnpd` ( `enabled` INT NOT NULL);
-- chosen: media services
CREATE TABLE `tivo_mak` ( `name` VARCHAR(63) NOT NULL COLLATE NOCASE, `mak` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`name`));
CREATE TABLE `rsync_user_password_acl` ( `share_id` INT NOT NULL, `user` VARCHAR(45) NOT NULL COLLATE NOCASE, `password` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`share_id`, `user`));
-- chosen: UPS configuration
CREATE TABLE `ups_config` ( `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `driver` VARCHAR(45) NOT NULL COLLATE NOCASE, `port` VARCHAR(255) NOT NULL DEFAULT 'auto' COLLATE NOCASE, `description` VARCHAR(255) NULL COLLATE NOCASE, `shutdown_on_battery` INT NOT NULL DEFAULT 0, `shutdown_delay` INT NOT NULL DEFAULT 0, PRIMARY KEY (`name`));
CREATE TABLE `service_upsd` ( `enabled` INT NULL, `upsd_uname` VARCHAR(45) NULL COLLATE NOCASE, `upsd_passwd` VARCHAR(45) NULL COLLATE NOCASE, `listen1` VARCHAR(45) NULL COLLATE NOCASE, `listen2` VARCHAR(45) NULL COLLATE NOCASE, `allow_host` VARCHAR(45) NULL COLLATE NOCASE);
CREATE TABLE `process_on_share` ( `share_id` INT NOT NULL, `pid` INT NOT NULL, `blocking` INT NOT NULL, `ts` DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP, PRIMARY KEY (`share_id`, `pid`));
CREATE TABLE `$iscsi_lun_group` ( `name` VARCHAR(255) NOT NULL COLLATE NOCASE, `target` VARCHAR(255) NOT NULL COLLATE NOCASE, `all_hosts` INT NOT NULL, `chap_auth` INT NOT NULL, `chap_secret` VARCHAR(255) NULL COLLATE NOCASE, UNIQUE (`name` ASC), UNIQUE (`target` ASC), PRIMARY KEY (`name`));
CREATE TABLE `$iscsi_initiator` ( `name` VARCHAR(255) NOT NULL COLLATE NOCASE, `chap_auth` INT NOT NULL, `chap_secret` VARCHAR(255) NULL COLLATE NOCASE, UNIQUE (`name` ASC), PRIMARY KEY (`name`));
CREATE TABLE `service_smartnetwork` ( `enabled` INT NULL);
CREATE TABLE `service_http` ( `enabled` INT NOT NULL DEFAULT 1, `use_password` INT NOT NULL DEFAULT 0, `share_name` VARCHAR(45) NOT NULL DEFAULT '' COLLATE NOCASE, `http_admin` INT NOT NULL DEFAULT 0);
CREATE TABLE `service_https` ( `enabled` INT NULL, `port` INT NULL, `ssl_key_host` VARCHAR(45) NULL COLLATE NOCASE);
CREATE TABLE `service_daap` ( `enabled` INT NULL DEFAULT 0, `sharename` VARCHAR(45) NULL DEFAULT 'My Share' COLLATE NOCASE, `password` VARCHAR(45) NULL COLLATE NOCASE, `directory` VARCHAR(255) NULL DEFAULT '/c/media/Music' COLLATE NOCASE);
CREATE TABLE `$iscsi_lun` ( `name` VARCHAR(255) NOT NULL COLLATE NOCASE, `lun_group` VARCHAR(255) NULL COLLATE NOCASE, `lun_n` INT NOT NULL, PRIMARY KEY (`name`));
CREATE TABLE `cifs_dfs_option` ( `share_id` INT NOT NULL, `volume` VARCHAR(45) NULL COLLATE NOCASE, `share` VARCHAR(45) NULL COLLATE NOCASE, `folder` VARCHAR(255) NOT NULL COLLATE NOCASE, `address` VARCHAR(45) NULL COLLATE NOCASE, `remote_share` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY (`share_id`, `folder`));
CREATE TABLE `service_anti_virus` ( `enabled` INT NOT NULL, `action` VARCHAR(45) NOT NULL COLLATE NOCASE, `ignore` INT NOT NULL DEFAULT 3);
CREATE TABLE `volume_schedule` ( `job_id` INT NOT NULL, `volume_id` VARCHAR(45) NOT NULL COLLATE NOCASE, `enabled` INT NOT NULL, `action` INT NOT NULL, `minute` VARCHAR(45) NOT NULL COLLATE NOCASE, `hour` VARCHAR(45) NOT NULL COLLATE NOCASE, `dayofmonth` VARCHAR(45) NOT NULL COLLATE NOCASE, `month` VARCHAR(45) NOT NULL COLLATE NOCASE, `dayofweek` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`job_id`));
-- chosen: media services
CREATE TABLE `daap_share_option` ( `share_id` INT NOT NULL, `available` TINYINT(1) NOT NULL DEFAULT 1, PRIMARY KEY (`share_id`));
-- chosen: the per-user Time Machine quota in MiB
CREATE TABLE `$timemachine_quota` ( `user_id` INT NOT NULL, `mb_quota` BIGINT UNSIGNED NULL, PRIMARY KEY (`user_id`));
-- chosen: home folders
CREATE TABLE `$home_folder_snapshot_schedule` ( `user_id` INT NOT NULL, `enabled` INT NOT NULL DEFAULT 0, `minute` VARCHAR(45) NULL COLLATE NOCASE, `hour` VARCHAR(45) NULL COLLATE NOCASE, `day_of_month` VARCHAR(45) NULL COLLATE NOCASE, `day_of_week` VARCHAR(45) NULL COLLATE NOCASE, `month` VARCHAR(45) NULL COLLATE NOCASE, `last_taken` INT NULL, PRIMARY KEY (`user_id`));
-- chosen: home folders
CREATE TABLE `$home_folder` ( `user_id` INT NOT NULL, `snapshot_protection_enabled` INT NOT NULL DEFAULT 0, `quota` BIGINT NULL, `visible_snapdir` INT NOT NULL DEFAULT 0, `prev_versions` INT NULL, PRIMARY KEY (`user_id`));
-- chosen: home folders
CREATE TABLE `$home_folder_snapshot` ( `id` INTEGER NOT NULL, `user_name` VARCHAR(45) NOT NULL COLLATE NOCASE, `home_dir` VARCHAR(255) NOT NULL COLLATE NOCASE, `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `type` INT NOT NULL, `created_on` INT NOT NULL, `used` BIGINT NULL, PRIMARY KEY (`id`));
CREATE TABLE `ssh_public_key` ( `id` INTEGER NOT NULL, `user_id` INT NOT NULL DEFAULT 0, `serve_for` VARCHAR(255) NOT NULL DEFAULT 'rsync' COLLATE NOCASE, `type` VARCHAR(255) NOT NULL COLLATE NOCASE, `key` VARCHAR(255) NOT NULL COLLATE NOCASE, `comment` VARCHAR(255) NULL COLLATE NOCASE, `fingerprint` VARCHAR(255) NOT NULL COLLATE NOCASE, `Title` VARCHAR(255) NOT NULL COLLATE NOCASE, UNIQUE (`user_id` ASC, `key` ASC), PRIMARY KEY (`id`));
CREATE INDEX `ssh_public_key_key_INDEX` ON `ssh_public_key` (`key` ASC);
CREATE INDEX `ssh_public_key_serve_for_INDEX` ON `ssh_public_key` (`serve_for` ASC);
CREATE INDEX `ssh_public_key_user_id_INDEX` ON `ssh_public_key` (`user_id` ASC);
CREATE INDEX `ssh_public_key_user_id_key_INDEX` ON `ssh_public_key` (`user_id` ASC, `key` ASC);
CREATE INDEX `ssh_public_key_Title_INDEX` ON `ssh_public_key` (`Title` ASC);
CREATE TABLE `snapshot_management` ( `share_id` INT NOT NULL, `enabled` INT NOT NULL DEFAULT 0, `retention_rule` INT NOT NULL DEFAULT 1, `lifetime` INT NOT NULL DEFAULT 2592000, `number` INT NOT NULL DEFAULT 30, `schedule` VARCHAR(255) NULL COLLATE NOCASE, `nonempty_snapshots` INT NULL DEFAULT 0, `prev_versions` INT NULL DEFAULT 0, PRIMARY KEY (`share_id`));
CREATE TABLE `smb_username_map` ( `id` INTEGER NOT NULL, `unix_uname` VARCHAR(45) NOT NULL COLLATE NOCASE, `smb_uname` VARCHAR(45) NOT NULL COLLATE NOCASE, `type` VARCHAR(45) NULL COLLATE NOCASE, UNIQUE (`smb_uname` ASC), UNIQUE (`unix_uname` ASC, `type` ASC), PRIMARY KEY (`id`));
CREATE INDEX `smb_username_map_unix_uname_index` ON `smb_username_map` (`unix_uname` ASC);
CREATE INDEX `smb_username_map_type_index` ON `smb_username_map` (`type` ASC);
CREATE TABLE `$vol_maint_log` ( `operation` VARCHAR(16) NOT NULL COLLATE NOCASE, `device` VARCHAR(64) NOT NULL COLLATE NOCASE, `start_time` INT NOT NULL, `end_time` INT NULL, `result` VARCHAR(16) NULL COLLATE NOCASE, `details` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY (`operation`, `device`, `start_time`));
CREATE TABLE `replisync` ( `id` INTEGER NOT NULL, `name` VARCHAR(63) NOT NULL COLLATE NOCASE, `enabled` INT NULL, `source_host` VARCHAR(63) NULL COLLATE NOCASE, `source_port` INT NULL, `source_path` VARCHAR(254) NULL COLLATE NOCASE, `dest_host` VARCHAR(63) NULL COLLATE NOCASE, `dest_port` INT NULL, `dest_path` VARCHAR(254) NULL COLLATE NOCASE, `interval` INT NULL, `bw_limit` INT NULL, `encrypt` INT NULL, `compress` VARCHAR(45) NULL COLLATE NOCASE, `schedule` VARCHAR(254) NULL COLLATE NOCASE, UNIQUE (`id` ASC), UNIQUE (`name` ASC), PRIMARY KEY (`id`));
CREATE TABLE `replisync_key` ( `id` INTEGER NOT NULL, `title` VARCHAR(255) NOT NULL COLLATE NOCASE, `type` VARCHAR(255) NOT NULL COLLATE NOCASE, `key` VARCHAR(255) NOT NULL COLLATE NOCASE, `fingerprint` VARCHAR(255) NOT NULL COLLATE NOCASE, PRIMARY KEY (`id`));
-- The indexes the library adds for its own statements (made after the
-- upgrade steps, so an upgraded database and one made by an older library
-- end with them too).
CREATE INDEX `user_acl_share_proto` ON `user_acl` (`share_id` ASC, `proto` ASC, `user_id` ASC);
CREATE INDEX `group_acl_share_proto` ON `group_acl` (`share_id` ASC, `proto` ASC, `group_id` ASC);
CREATE INDEX `$user_uname` ON `$user` (`uname` ASC, `rid` ASC);
CREATE INDEX `$group_gname` ON `$group` (`gname` ASC, `rid` ASC);
CREATE INDEX `$user_group_id` ON `$user` (`group_id` ASC);
CREATE INDEX `$group_has_user_group_id` ON `$group_has_user` (`group_id` ASC, `user_id` ASC);
-- [temp]
CREATE TABLE `_volume` ( `id` VARCHAR(45) NOT NULL COLLATE NOCASE, `lv_name` VARCHAR(45) NOT NULL COLLATE NOCASE, `uuid` VARCHAR(63) NULL COLLATE NOCASE, `devname` VARCHAR(45) NULL COLLATE NOCASE, `blk_total` BIGINT NULL, `blk_free` BIGINT NULL, `blk_size` INT NOT NULL, `raid_type` VARCHAR(45) NULL COLLATE NOCASE, `zfs_type` VARCHAR(45) NULL COLLATE NOCASE, `volumecol` VARCHAR(45) NULL COLLATE NOCASE, `volume_health` VARCHAR(45) NOT NULL DEFAULT 'UNKNOWN' COLLATE NOCASE, `sent_resilver_event` INT NOT NULL DEFAULT 0, `sent_scan_end` INT NOT NULL DEFAULT 1, `keyfile` VARCHAR(45) NULL COLLATE NOCASE, `balance_status` INT NOT NULL DEFAULT 0, `disk_test_status` INT NOT NULL DEFAULT 0, UNIQUE (`lv_name` ASC), PRIMARY KEY (`id`));
-- chosen: disks and enclosures
CREATE TABLE `_disk_health` ( `disk_info_id` VARCHAR(45) NOT NULL COLLATE NOCASE, `devname` VARCHAR(45) NULL COLLATE NOCASE, `health` VARCHAR(45) NOT NULL DEFAULT 'UNKNOWN' COLLATE NOCASE, `temperature` INT NULL, `power_on_hours` INT NULL, `reallocated_sectors` INT NULL, `pending_sectors` INT NULL, PRIMARY KEY (`disk_info_id`));
CREATE TABLE `_zfs_stat` ( `share_id` INT NOT NULL, `available` BIGINT UNSIGNED NULL, `used` BIGINT UNSIGNED NULL, `usedbychildren` BIGINT UNSIGNED NULL, `usedbydataset` BIGINT UNSIGNED NULL, `usedbyrefreservation` BIGINT UNSIGNED NULL, `usedbysnapshots` BIGINT UNSIGNED NULL, `compressratio` VARCHAR(45) NULL COLLATE NOCASE, `referenced` BIGINT UNSIGNED NULL, PRIMARY KEY (`share_id`));
-- chosen: per-share usage of each user and group with a quota
CREATE TABLE `_user_quota_stat` ( `user_id` INT NOT NULL, `share_id` INT NOT NULL, `used` BIGINT UNSIGNED NULL, PRIMARY KEY (`user_id`, `share_id`));
-- chosen: per-share usage of each user and group with a quota
CREATE TABLE `_group_quota_stat` ( `group_id` INT NOT NULL, `share_id` INT NOT NULL, `used` BIGINT UNSIGNED NULL, PRIMARY KEY (`group_id`, `share_id`));
-- chosen: disks and enclosures
CREATE TABLE `_enclosure_health` ( `enclosure_id` INT NOT NULL, `sensor` VARCHAR(63) NOT NULL COLLATE NOCASE, `value` INT NULL, `status` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`enclosure_id`, `sensor`));
-- chosen: domain accounts
CREATE TABLE `_ads_importer` ( `state` INT NOT NULL DEFAULT 0, `total_group` INT NOT NULL DEFAULT 0, `curr_group` INT NOT NULL DEFAULT 0, `total_user` INT NOT NULL DEFAULT 0, `curr_user` INT NOT NULL DEFAULT 0, `start_at` INT NOT NULL DEFAULT 0, `done_at` INT NOT NULL DEFAULT 0);
-- chosen: UPS configuration
CREATE TABLE `_ups_health` ( `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `status` VARCHAR(45) NULL COLLATE NOCASE, `battery_charge` INT NULL, `battery_runtime` INT NULL, `load` INT NULL, `input_voltage` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`name`));
CREATE TABLE `_dictionary` ( `id` VARCHAR(0) NOT NULL COLLATE BINARY, `lang_id` INT NOT NULL, `str` VARCHAR(1023) NOT NULL COLLATE NOCASE, PRIMARY KEY (`id`, `lang_id`));
CREATE TABLE `_lang_supported` ( `id` INTEGER NOT NULL, `lang` VARCHAR(45) NOT NULL COLLATE NOCASE, `spell` VARCHAR(45) NOT NULL COLLATE NOCASE, PRIMARY KEY (`id`));
-- chosen: home folders
CREATE TABLE `_hf_zfs_stat` ( `user_id` INT NOT NULL, `used` BIGINT UNSIGNED NULL, `usedbysnapshots` BIGINT UNSIGNED NULL, PRIMARY KEY (`user_id`));
-- chosen: disks and enclosures
CREATE TABLE `_disk_enclosure` ( `enclosure_id` INT NOT NULL, `slot` INT NOT NULL, `disk_info_id` VARCHAR(45) NULL COLLATE NOCASE, `devname` VARCHAR(45) NULL COLLATE NOCASE, PRIMARY KEY (`enclosure_id`, `slot`));
-- chosen: UPS configuration
CREATE TABLE `_ups_config` ( `name` VARCHAR(45) NOT NULL COLLATE NOCASE, `driver` VARCHAR(45) NOT NULL COLLATE NOCASE, `port` VARCHAR(255) NOT NULL DEFAULT 'auto' COLLATE NOCASE, `description` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY (`name`));
