INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'data/docs','data','docs','/data/docs',0,0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(2,'data/archive','data','archive','/data/archive',0,0);
INSERT INTO snapshot_schedule (share_id,enabled,minute,hour,day_of_month,day_of_week,month,purge_manual_snapshot) VALUES(1,1,'0','*/4','*','mon,wed,fri','*',0);
INSERT INTO snapshot_management (share_id,enabled,retention_rule,lifetime,number,schedule,nonempty_snapshots,prev_versions) VALUES(1,1,2,604800,14,'000000000000000000000000000000001000100010000000000000001000100010000000000000001000100010000000000000001000100010000000000000001000100010000000000000000000000000000000',0,1);
INSERT INTO snapshot_management (share_id,enabled,retention_rule,lifetime,number,schedule,nonempty_snapshots,prev_versions) VALUES(2,0,1,2592000,30,'',1,0);
INSERT INTO snapshot_management (share_id,enabled,retention_rule,lifetime,number,schedule,nonempty_snapshots,prev_versions) VALUES(0,1,1,1209600,30,'100000000000100000000000100000000000100000000000100000000000100000000000100000000000100000000000100000000000100000000000100000000000100000000000100000000000100000000000',1,NULL);
