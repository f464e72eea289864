INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'data/docs','data','docs','/data/docs',0,0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(2,'data/archive','data','archive','/data/archive',0,0);
