INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'data/docs','data','docs','/data/docs',0,0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(2,'data/archive','data','archive','/data/archive',0,0);
INSERT INTO backup (id,name,enabled,sch_every,sch_start,sch_end,sch_dow,src_type,src_share_proto,src_path,src_login,src_password,src_port,src_eject,dst_type,dst_share_proto,dst_path,dst_login,dst_password,dst_port,dst_eject,opt_full_backup_freq,opt_remove_previous_backup,opt_chown_to_share_owner,opt_rsync_options,opt_email_this_to_alert_email,opt_rsync_exclude,opt_misc_option,wol_addr)
 VALUES(3,'weekly',0,24,2,2,127,'local','archive','/archive','','',NULL,NULL,'usb','','/usb1','','',NULL,1,NULL,0,0,0,1,'',NULL,'aa:bb:cc:dd:ee:ff');
INSERT INTO backup (id,name,enabled,sch_every,sch_start,sch_end,sch_dow,src_type,src_share_proto,src_path,src_login,src_password,src_port,src_eject,dst_type,dst_share_proto,dst_path,dst_login,dst_password,dst_port,dst_eject,opt_full_backup_freq,opt_remove_previous_backup,opt_chown_to_share_owner,opt_rsync_options,opt_email_this_to_alert_email,opt_rsync_exclude,opt_misc_option,wol_addr)
 VALUES(7,'Docs <nightly> & "more"',1,4,0,23,0,'share','docs','','admin','p&w''d',NULL,0,'share','archive','/backups/docs','','',NULL,0,'weekly',1,1,2,0,'*.tmp',0,'');
INSERT INTO backup (id,name,enabled,sch_every,sch_start,sch_end,sch_dow,src_type,src_share_proto,src_path,src_login,src_password,src_port,src_eject,dst_type,dst_share_proto,dst_path,dst_login,dst_password,dst_port,dst_eject,opt_full_backup_freq,opt_remove_previous_backup,opt_chown_to_share_owner,opt_rsync_options,opt_email_this_to_alert_email,opt_rsync_exclude,opt_misc_option,wol_addr)
 VALUES(12,'offsite',1,6,1,22,3,'local','docs','/data/docs','','',22,0,'rsync+ssh','backup','nas2.example.com:/pool','bk','secret',873,0,NULL,0,0,1,1,'',0,'00:11:22:33:44:55');
INSERT INTO backup_button_jobs (`order`,backup_id) VALUES(1,12);
INSERT INTO backup_button_jobs (`order`,backup_id) VALUES(2,3);
