-- A volume share and a USB share reaching every guarded column of the AFP
-- share export (test_afp.cpp walks hostile values through them).
INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1),('USB','USB',1);
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1000,'alice',100,0,NULL),(1001,'fuser',100,0,NULL);
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
  (1,'vol1/docs','vol1','docs','/vol1/docs',0,0),(2,'USB/stick','USB','stick','/USB/stick',0,0);
INSERT INTO afp_share_option (share_id,available,afp_access,afp_guest_access,other_options,force_user)
  VALUES(1,1,'disabled',0,NULL,NULL),(2,1,'readonly',0,'ea:sys',1001);
INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(1,1000,'afp',1,1),(2,1000,'afp',1,1);
INSERT INTO group_acl (share_id,group_id,proto,read,write) VALUES(1,100,'afp',1,0);
