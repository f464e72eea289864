INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'media/a','media','a','/media/a',0,0),(2,'media/b','media','b','/media/b',0,0);
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync) VALUES(2,1,'readonly',1);
