INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'vol1/a','vol1','a','/vol1/a',0,0);
INSERT INTO rsync_share_option (share_id,available,passwordprotection,rsync_access) VALUES(1,1,'disabled','readonly');
