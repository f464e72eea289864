INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'data/q1','data','q1','/data/q1',0,0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(2,'data/q2','data','q2','/data/q2',0,0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(3,'data/q3','data','q3','/data/q3',0,0);
