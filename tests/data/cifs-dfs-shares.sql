INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
  (1,'vol1/archive','vol1','archive','/vol1/archive',0,0),
  (2,'vol2/snap','vol2','snap','/vol2/snap',0,0);
