INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id,comment) VALUES
  (1,'data/lun0','zvol','data','lun0','/data/lun0',0,0,'Boot disk of vm1'),
  (2,'data/lun1','zvol','data','lun1','/data/lun1',0,0,NULL),
  (3,'data/docs','share','data','docs','/data/docs',0,0,'not a LUN');
INSERT INTO zvol_share_option (share_id,kb_size,is_sparse) VALUES (1,4,'0'), (2,8,'0');
