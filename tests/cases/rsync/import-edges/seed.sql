INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('media','media',0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/open','vol1','open','/vol1/open',0,0),(2,'vol1/shut','vol1','shut','/vol1/shut',0,0),
 (3,'media/stick','media','stick','/media/stick',0,0);
