INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/a','vol1','a','/vol1/a',0,0),(2,'vol1/b','vol1','b','/vol1/b',0,0),
 (3,'vol1/c','vol1','c','/vol1/c',0,0),(4,'vol1/d','vol1','d','/vol1/d',0,0),
 (5,'vol1/e','vol1','e','/vol1/e',0,0),(6,'vol1/f','vol1','f','/vol1/f',0,0),
 (7,'vol1/h','vol1','h','/vol1/h',0,0);
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync,other_options) VALUES
 (2,0,'writeable',0,'gone'),(5,1,'readonly',0,'kept');
INSERT INTO host (id,name) VALUES(1,'old'),(2,'keep-host'),(3,'old-cifs'),(4,'H1');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES
 (2,1,'nfs',1,1,1),(2,3,'cifs',1,1,0),(5,2,'nfs',1,1,0);
