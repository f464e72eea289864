INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(1,'media/stick','media','stick','/media/stick',0,0),(2,'vol1/data','vol1','data','/vol1/data',0,0);
