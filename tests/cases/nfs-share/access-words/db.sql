INSERT INTO service_nfs (enabled,user_home_directory,threads,nfsv4,domain) VALUES(1,0,8,0,'');
INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id,visible_snapdir) VALUES
 (1,'vol1/docs','vol1','docs','/vol1/docs',0,0,NULL),
 (2,'vol1/team','vol1','team','/vol1/team',0,0,''),
 (3,'vol1/closed','vol1','closed','/vol1/closed',0,0,''),
 (4,'vol1/lab','vol1','lab','/vol1/lab',0,0,NULL),
 (5,'vol2/hidden','vol2','hidden','/vol2/hidden',0,0,''),
 (6,'gone/orphan','gone','orphan','/gone/orphan',0,0,''),
 (7,'vol1/cifsonly','vol1','cifsonly','/vol1/cifsonly',0,0,'');
-- The access words compare without case; anything but the two known words
-- reads as disabled.
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync,other_options) VALUES
 (1,1,'readonly',0,NULL),(2,1,'WRITEABLE',1,'ignored'),(3,1,'disabled',0,NULL),
 (4,1,'nonsense',1,NULL),(5,0,'writeable',0,NULL),(6,1,'writeable',0,NULL);
INSERT INTO cifs_share_option (share_id,cifs_access) VALUES(7,'writeable');
-- Host ids in another order than the names: the clients come in name order,
-- case ignored.
INSERT INTO host (id,name) VALUES(1,'Zed'),(2,'alpha'),(3,'10.0.0.0/8'),(4,'blocked'),(5,'admin-pc'),(6,'pc-9'),(7,'smb-only');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES
 (2,1,'nfs',1,0,0),(2,2,'nfs',1,1,0),(2,3,'nfs',1,0,1),(2,4,'nfs',0,0,0),(2,7,'cifs',1,1,0),
 (4,5,'nfs',1,1,1),(5,6,'nfs',1,1,0),(6,6,'nfs',1,1,0);
