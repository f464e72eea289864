INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/docs','vol1','docs','/vol1/docs',0,0),(2,'vol1/public','vol1','public','/vol1/public',0,0);
INSERT INTO rsync_share_option (share_id,available,passwordprotection,rsync_access) VALUES(1,1,'disabled','readonly'),(2,1,'enabled','writeable');
INSERT INTO rsync_user_password_acl (share_id,user,password) VALUES(2,'alice','a:b');
