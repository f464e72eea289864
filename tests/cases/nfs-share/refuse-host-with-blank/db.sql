INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id,visible_snapdir) VALUES
 (1,'vol1/docs','vol1','docs','/vol1/docs',0,0,''),(2,'vol2/zz','vol2','zz','/vol2/zz',0,0,'');
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync) VALUES(1,1,'writeable',0),(2,0,'readonly',0);
INSERT INTO host (id,name) VALUES(1,'pc1');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES(1,1,'nfs',1,1,0);
UPDATE host SET name='pc1 *(rw,no_root_squash)' WHERE id=1;
