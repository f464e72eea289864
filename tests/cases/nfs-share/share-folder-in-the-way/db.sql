INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/a','vol1','a','/vol1/a',0,0),(2,'vol1/b','vol1','b','/vol1/b',0,0);
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync) VALUES(1,1,'readonly',1),(2,1,'readonly',1);
