-- Two modules reaching every guarded column of the rsync export
-- (test_rsync.cpp walks hostile values through them).
INSERT INTO share (id,zfs_name,volume_id,name,path,comment,user_id,group_id) VALUES
  (1,'vol1/public','vol1','public','/vol1/public','Files',0,0),
  (2,'vol1/docs','vol1','docs','/vol1/docs',NULL,0,0);
INSERT INTO rsync_share_option (share_id,available,passwordprotection,rsync_access)
  VALUES(1,1,'enabled','writeable'),(2,1,'disabled','readonly');
INSERT INTO rsync_user_password_acl (share_id,user,password) VALUES(1,'alice','secret');
INSERT INTO host (id,name) VALUES(1,'pc1');
INSERT INTO host_acl (share_id,host_id,proto,read,write) VALUES(1,1,'rsync',1,1);
