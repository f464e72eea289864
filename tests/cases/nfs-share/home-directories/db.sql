INSERT INTO service_nfs (enabled,user_home_directory,threads,nfsv4,domain) VALUES(1,1,8,NULL,NULL);
INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'vol1/pub','vol1','pub','/vol1/pub',0,0);
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync) VALUES(1,1,'writeable',0);
