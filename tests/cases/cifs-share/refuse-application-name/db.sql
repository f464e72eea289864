INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1000,'alice',100,0,NULL);
INSERT INTO share (id,zfs_name,volume_id,name,path,comment,user_id,group_id) VALUES(1,'vol1/docs','vol1','docs','/vol1/docs','Docs',0,0);
INSERT INTO cifs_share_option (share_id,cifs_access) VALUES(1,'writeable');
INSERT INTO zfs_attr (share_id) VALUES(1);
INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(1,1000,'cifs',1,0);
INSERT INTO `$application_on_share` (zfs_name,app_name) VALUES('vol1/docs','../../outside');
