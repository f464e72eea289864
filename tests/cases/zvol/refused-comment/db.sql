INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id,comment) VALUES
  (1,'data/lun1','zvol','data','lun1','/data/lun1',0,0,'fine'),
  (2,'data/lun2','zvol','data','lun2','/data/lun2',0,0,'x'||char(10)||'comment y');
INSERT INTO zvol_share_option (share_id,kb_size,is_sparse) VALUES (1,4,'0'),(2,4,'0');
