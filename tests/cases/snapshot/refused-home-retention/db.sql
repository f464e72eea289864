INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'data/docs','data','docs','/data/docs',0,0);
INSERT INTO snapshot_schedule (share_id,enabled,minute,hour,day_of_month,day_of_week,month,purge_manual_snapshot) VALUES(1,1,'0','1','*','*','*',0);
INSERT INTO snapshot_management (share_id,number) VALUES(0,'7'||char(10)||'x');
