INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES
  (1,'data/docs','share','data','docs','/data/docs',0,0),
  (2,'data/media','share','data','media','/data/media',0,0),
  (3,'data/Team Files','share','data','Team Files','/data/Team Files',0,0),
  (4,'data/snapview','readonly','data','snapview','/data/snapview',0,0),
  (5,'data/lun0','zvol','data','lun0','/data/lun0',0,0);
