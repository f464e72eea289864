INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024),('vol3','vol3',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/docs','vol1','docs','/vol1/docs',0,0),(2,'vol1/pub','vol1','pub','/vol1/pub',0,0),
 (3,'vol2/backup','vol2','backup','/vol2/backup',0,0),(4,'vol3/quiet','vol3','quiet','/vol3/quiet',0,0);
