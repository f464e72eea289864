INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES(2,'data/lun1','zvol','1','lun1','/data/../etc',0,0);
