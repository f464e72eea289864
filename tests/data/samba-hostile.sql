-- One share reaching every guarded column of the CIFS share export
-- (test_cifs_samba.cpp walks hostile values through them).
INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1);
INSERT INTO `$user` (id,uname,group_id,is_privileged,rid) VALUES(1000,'alice',100,0,NULL),(1001,'fuser',100,0,NULL);
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES(100,'staff',0,NULL);
INSERT INTO host (id,name) VALUES(1,'pc1');
INSERT INTO share (id,zfs_name,volume_id,name,path,comment,user_id,group_id)
  VALUES(1,'vol1/docs','vol1','docs','/vol1/docs','Docs',0,0);
INSERT INTO cifs_share_option (share_id,cifs_access,force_user) VALUES(1,'disabled',1001);
INSERT INTO zfs_attr (share_id) VALUES(1);
INSERT INTO user_acl (share_id,user_id,proto,read,write) VALUES(1,1000,'cifs',1,0);
INSERT INTO group_acl (share_id,group_id,proto,read,write) VALUES(1,100,'cifs',1,1);
INSERT INTO host_acl (share_id,host_id,proto,read,write) VALUES(1,1,'cifs',1,1);
INSERT INTO cifs_dfs_option (share_id,volume,share,folder,address,remote_share)
  VALUES(1,'vol1','docs','link','server','pub');
INSERT INTO `$application_on_share` (zfs_name,app_name) VALUES('vol1/docs','cms');
