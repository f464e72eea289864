INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1000,'alice',100,0,NULL),(1001,'bob ; x',100,0,NULL);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/docs','vol1','docs','/vol1/docs',0,0),(2,'vol1/team','vol1','team','/vol1/team',0,0);
INSERT INTO afp_share_option (share_id,available,afp_access,afp_guest_access) VALUES(1,1,'writeable',1),(2,1,'disabled',0);
INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(1,1000,'afp',1,0),(2,1001,'afp',1,1);
