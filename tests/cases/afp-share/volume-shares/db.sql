INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('media','media',0),('USB','USB',0);
-- Primary group 97 and 98 mark cloud users; admin never counts.
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
 (9,'vol9/lost','share','vol9','lost','/vol9/lost',NULL,0,0),
 (10,'vol1/plain','share','vol1','plain','/vol1/plain',NULL,0,0);
INSERT INTO afp_share_option (share_id,available,afp_access,afp_guest_access,afp_fperm,afp_dperm,other_options,force_user) VALUES
 (1,1,'readonly',0,420,493,NULL,NULL),
 (2,1,'disabled',1,NULL,NULL,NULL,NULL),
 (3,1,'writeable',1,NULL,NULL,NULL,NULL),
 (4,0,'writeable',0,NULL,NULL,NULL,NULL),
 (5,1,'disabled',0,NULL,NULL,NULL,NULL),
 (6,1,'writeable',0,NULL,0,NULL,NULL),
 (7,1,'readonly',0,420,420,'ea:sys',1000),
 (8,0,'disabled',1,384,448,NULL,NULL),
 (9,1,'writeable',1,NULL,NULL,NULL,NULL);
INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES
 (1,1000,'afp',1,0),(1,1001,'afp',1,1),(1,1004,'cifs',1,1),
 (3,1000,'afp',1,0),(3,1002,'afp',0,0),(3,1004,'afp',0,0),
 (5,1000,'afp',1,0),(5,1001,'afp',1,1),
 (7,1001,'afp',1,1);
INSERT INTO group_acl (share_id,group_id,proto,read,write) VALUES
 (1,100,'afp',1,1),(3,101,'afp',1,0),(5,100,'afp',1,1),(5,101,'afp',1,0),(3,100,'nfs',1,1);
