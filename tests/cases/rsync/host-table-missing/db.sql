INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'vol1/a','vol1','a','/vol1/a',0,0);
INSERT INTO rsync_share_option (share_id,available,passwordprotection,rsync_access) VALUES(1,1,'enabled','readonly');
INSERT INTO rsync_user_password_acl (share_id,user,password) VALUES(1,'u','p');
DROP TABLE host;
