INSERT INTO service_nfs (enabled,user_home_directory,threads,nfsv4,domain) VALUES(1,1,8,1,'example.com');
INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024),('vol3','vol3',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id,visible_snapdir) VALUES
 (1,'vol1/docs','vol1','docs','/vol1/docs',0,0,'/vol1/docs/.snapshots'),
 (2,'vol1/pub','vol1','pub','/vol1/pub',0,0,NULL),
 (3,'vol2/backup','vol2','backup','/vol2/backup',0,0,''),
 (4,'vol3/quiet','vol3','quiet','/vol3/quiet',0,0,'');
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync) VALUES
 (1,1,'readonly',0),(2,1,'writeable',1),(3,1,'disabled',1),(4,0,'readonly',1);
INSERT INTO host (id,name) VALUES(1,'192.168.1.0/24'),(2,'nas2');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES(2,1,'nfs',1,1,0),(3,2,'nfs',1,1,1);
