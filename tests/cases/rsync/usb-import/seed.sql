INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/a','vol1','a','/vol1/a',0,0),(3,'media/c','media','c','/media/c',0,0);
