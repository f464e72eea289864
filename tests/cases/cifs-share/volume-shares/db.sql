INSERT INTO service_cifs (security,workgroup,domain_admin_user,user_home_directory,hostname_lookups) VALUES('user','WG','dadmin',0,0);
INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024),('media','media',0);
-- Primary group 97 and 98 mark cloud users; admin and ftp never count.
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES
 (1000,'alice',100,0,NULL),(1001,'bob',100,0,NULL),(1002,'carol',97,0,NULL),
 (1003,'dave',98,0,NULL),(1004,'erin',100,0,NULL),(500,'admin',98,1,NULL),
 (501,'ftp',98,0,NULL),(65534,'guest',65534,0,NULL);
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL),(101,'eng',0,NULL),(97,'cloud',0,NULL);
INSERT INTO share (id,zfs_name,type,volume_id,name,path,comment,user_access,group_access,everyone_access,non_owner_delete,user_id,group_id,visible_snapdir) VALUES
 (1,'vol1/archive',NULL,'vol1','archive','/vol1/archive','Old files',7,7,0,1,1000,100,NULL),
 (2,'vol1/closed','share','vol1','closed','/vol1/closed',NULL,7,5,5,0,0,0,''),
 (3,'vol1/closedguest','share','vol1','closedguest','/vol1/closedguest','Guests',7,5,5,0,0,0,'1'),
 (4,'vol1/data','media','vol1','data','/vol1/data','Team data',7,7,5,0,1001,100,''),
 (5,'vol1/noattr','share','vol1','noattr','/vol1/noattr','No attributes',7,5,5,0,0,0,''),
 (6,'vol1/private','share','vol1','private','/vol1/private','Private',7,5,5,0,0,0,''),
 (7,'vol1/readers','share','vol1','readers','/vol1/readers','Readers',7,5,5,0,0,0,''),
 (8,'vol2/writers','share','vol2','writers','/vol2/writers','Writers',7,5,5,0,0,0,''),
 (9,'vol2/snap','share','vol2','snap','/vol2/snap','Snapshots',7,5,5,0,0,0,''),
 (10,'media/usb','share','media','usb','/media/usb','USB',7,7,7,0,0,0,''),
 (11,'media/usbdisk','share','media','usbdisk','/media/usbdisk','Disk',7,7,7,0,0,0,'');
INSERT INTO cifs_share_option (share_id,available,cifs_access,cifs_guest_access,cifs_hide_share,cifs_group_create_mask,cifs_everyone_create_mask,cifs_enable_masks,cifs_group_directory_mask,cifs_everyone_directory_mask,cifs_enable_forced_minimum,cifs_recycle,cifs_recycle_mb_limit,cifs_recycle_age_limit,oplocks,force_user,cifs_enabledfs) VALUES
 (1,1,'readonly',0,1,7,5,1,7,5,0,1,100,7,1,NULL,0),
 (2,1,'disabled',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),
 (3,0,'disabled',1,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),
 (4,1,'writeable',0,0,NULL,NULL,1,NULL,NULL,0,0,NULL,NULL,0,NULL,0),
 (5,1,'writeable',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),
 (6,1,'disabled',1,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),
 (7,1,'disabled',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),
 (8,1,'DISABLED',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),
 (9,1,'writeable',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,1000,1),
 (10,1,'writeable',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0),
 (11,1,'readonly',0,0,NULL,NULL,0,NULL,NULL,0,0,NULL,NULL,0,NULL,0);
INSERT INTO zfs_attr (share_id) VALUES(1),(2),(3),(4),(6),(7),(8),(9),(10),(11);
INSERT INTO snapshot_schedule (share_id,enabled) VALUES(9,1),(4,0);
INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES
 (1,1000,'cifs',1,0),(1,1001,'cifs',1,1),(1,1004,'nfs',1,1),
 (4,1000,'cifs',1,0),(4,1004,'cifs',0,0),(4,1002,'cifs',0,0),
 (6,1000,'cifs',1,0),(6,1001,'cifs',1,1),(6,1004,'cifs',0,0),
 (7,1000,'cifs',1,0),(8,1001,'cifs',1,1);
INSERT INTO group_acl (share_id,group_id,proto,read,write) VALUES
 (1,100,'cifs',1,1),(4,101,'cifs',1,0),(6,101,'cifs',1,0),(6,100,'cifs',1,1),(8,100,'cifs',1,1),(7,100,'afp',1,1);
INSERT INTO host (id,name) VALUES(1,'192.168.1.0/24'),(2,'pc-1'),(3,'10.0.0.5');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES
 (1,1,'cifs',1,1,0),(1,2,'cifs',1,0,0),(1,3,'cifs',0,0,0),(4,1,'nfs',1,1,1);
INSERT INTO cifs_dfs_option (share_id,volume,share,folder,address,remote_share) VALUES
 (9,'vol2','snap','docs','server1','pub'),(9,NULL,NULL,'old','srv2','share2');
-- The first application has no include file; the second's is taken and the
-- third's never looked at.
INSERT INTO `$application_on_share` (zfs_name,app_name) VALUES('vol2/snap','alpha'),('vol2/snap','photos'),('vol2/snap','zeta');
INSERT INTO user_quota (user_id,share_id,mb_hard) VALUES(1000,1,100);
INSERT INTO group_quota (group_id,share_id,mb_hard) VALUES(100,4,2);
