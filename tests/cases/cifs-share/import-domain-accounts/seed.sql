INSERT INTO service_cifs (security,workgroup,domain_admin_user,user_home_directory,hostname_lookups) VALUES('user','WG','dadmin',0,0);
INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024),('media','media',0);
-- Primary group 97 and 98 mark cloud users; admin and ftp never count.
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES
 (1000,'alice',100,0,NULL),(1001,'bob',100,0,NULL),(1002,'carol',97,0,NULL),
 (1003,'dave',98,0,NULL),(1004,'erin',100,0,NULL),(500,'admin',98,1,NULL),
 (501,'ftp',98,0,NULL),(65534,'guest',65534,0,NULL);
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL),(101,'eng',0,NULL),(97,'cloud',0,NULL);
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1005,'twin',100,0,NULL),(2001,'twin',100,0,9),(2002,'dom1',100,0,5);
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(3000,'dgroup',0,7);
