INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id,visible_snapdir) VALUES
 (1,'vol1/alpha','vol1','alpha','/vol1/alpha',0,0,'/vol1/alpha/.snapshots'),
 (2,'vol1/beta','vol1','beta','/vol1/beta',0,0,'/vol1/beta/.snapshots'),
 (3,'vol1/gamma','vol1','gamma','/vol1/gamma',0,0,'/vol1/gamma/.snapshots'),
 (4,'vol1/delta','vol1','delta','/vol1/delta',0,0,''),
 (5,'vol2/zeta','vol2','zeta','/vol2/zeta',0,0,'/vol2/zeta/.snapshots'),
 (6,'vol2/epsilon','vol2','epsilon','/vol2/epsilon',0,0,'/vol2/epsilon/.snapshots');
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync) VALUES
 (1,1,'writeable',0),(2,1,'disabled',1),(3,1,'readonly',0),(4,1,'readonly',1),(5,1,'writeable',1),(6,0,'writeable',0);
INSERT INTO host (id,name) VALUES(1,'h1'),(2,'h2');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES
 (2,1,'nfs',1,0,0),(3,2,'nfs',1,1,1);
