INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('media','media',0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'media/usb','media','usb','/media/usb',0,0),
 (2,'media/usbdisk','media','usbdisk','/media/usbdisk',0,0),
 (3,'vol1/usbbackup','vol1','usbbackup','/vol1/usbbackup',0,0);
