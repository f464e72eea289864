INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES
 (1000,'alice',100,0,NULL),(1001,'bob',100,0,NULL),(1002,'carol',97,0,NULL);
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL),(101,'eng',0,NULL);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/archive','vol1','archive','/vol1/archive',0,0),
 (2,'vol1/team','vol1','team','/vol1/team',0,0),
 (3,'vol1/hidden','vol1','hidden','/vol1/hidden',0,0),
 (4,'vol1/data','vol1','data','/vol1/data',0,0),
 (5,'vol1/My Docs','vol1','My Docs','/vol1/My Docs',0,0),
 (6,'vol1/old','vol1','old','/vol1/old',0,0);
