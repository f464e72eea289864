INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES
  (7,'pool2/scratch','share','pool2','scratch','/pool2/scratch',0,0);
