-- One share reaching every guarded column of the NFS share export
-- (test_nfs.cpp walks hostile values through them).  "pc*" is a pattern:
-- exportfs keeps it as written instead of looking it up.
INSERT INTO service_nfs (enabled,user_home_directory,threads,nfsv4) VALUES(1,0,8,1);
INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id,visible_snapdir)
  VALUES(1,'vol1/docs','vol1','docs','/vol1/docs',0,0,'/vol1/docs/snap');
INSERT INTO nfs_share_option (share_id,nfs_access,nfs_sync) VALUES(1,'readonly',1);
INSERT INTO host (id,name) VALUES(1,'pc*');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES(1,1,'nfs',1,1,1);
