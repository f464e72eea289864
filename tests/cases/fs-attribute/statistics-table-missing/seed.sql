INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES
  (1,'data/docs','share','data','docs','/data/docs',0,0);
DROP TABLE _zfs_stat;
