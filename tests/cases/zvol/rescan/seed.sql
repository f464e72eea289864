INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id,comment,user_access)
  VALUES (5,'data/backup','zvol','data','backup','/data/backup',0,0,'old comment',7);
INSERT INTO zvol_share_option (share_id,kb_size,is_sparse) VALUES (5,1,'1');
