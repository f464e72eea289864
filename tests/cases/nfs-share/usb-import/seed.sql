INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('media','media',0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'media/stick','media','stick','/media/stick',0,0),(2,'media/usb2','media','usb2','/media/usb2',0,0),
 (3,'vol1/data','vol1','data','/vol1/data',0,0),(4,'media/My Docs','media','My Docs','/media/My Docs',0,0);
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync) VALUES(2,1,'readonly',0),(3,1,'readonly',0);
