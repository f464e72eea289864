INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('media','media',0),('USB','USB',0);
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES
 (1000,'alice',100,0,NULL),(1001,'bob',100,0,NULL),(1002,'carol',97,0,NULL),
 (1003,'dave',98,0,NULL),(1004,'erin',100,0,NULL),(500,'admin',98,1,NULL);
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL),(101,'eng',0,NULL),(97,'cloud',0,NULL);
INSERT INTO share (id,zfs_name,type,volume_id,name,path,comment,user_id,group_id) VALUES
 (1,'vol1/archive','readonly','vol1','archive','/vol1/archive','Old files',0,0),
 (2,'vol1/closed','share','vol1','closed','/vol1/closed',NULL,0,0),
 (3,'vol1/data','share','vol1','data','/vol1/data',NULL,0,0),
 (4,'vol1/hidden','share','vol1','hidden','/vol1/hidden',NULL,0,0),
 (5,'vol1/team','share','vol1','team','/vol1/team',NULL,0,0),
 (6,'media/usb','share','media','usb','/media/usb',NULL,0,0),
 (7,'USB/stick','share','USB','stick','/USB/stick',NULL,0,0),
 (8,'USB/vault','share','USB','vault','/USB/vault',NULL,0,0),
 (10,'vol1/plain','share','vol1','plain','/vol1/plain',NULL,0,0);
-- What an earlier import left: replaced for the shares with a file, kept
-- for the others and for other protocols.
INSERT INTO afp_share_option (share_id,available,afp_access,afp_guest_access,other_options) VALUES(1,1,'writeable',1,'stale'),(10,1,'writeable',1,NULL);
INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(3,1004,'afp',1,1),(1,1004,'cifs',1,1),(10,1000,'afp',1,0);
