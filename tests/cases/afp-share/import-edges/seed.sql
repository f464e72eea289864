INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1001,'bob',100,0,NULL),(1004,'erin',100,0,NULL);
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/folder','vol1','docs','/vol1/folder',0,0),(2,'vol1/locked','vol1','locked','/vol1/locked',0,0),
 (3,'vol1/plain','vol1','plain','/vol1/plain',0,0),(4,'vol1/home','vol1','home','/vol1/home',0,0);
