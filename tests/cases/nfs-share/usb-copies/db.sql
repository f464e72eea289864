INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('media','media',0);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'media/usb','media','usb','/media/usb',0,0),
 (2,'media/usbdisk','media','usbdisk','/media/usbdisk',0,0),
 (3,'vol1/usbbackup','vol1','usbbackup','/vol1/usbbackup',0,0);
INSERT INTO nfs_share_option (share_id,available,nfs_access,nfs_sync) VALUES(1,1,'writeable',0),(2,1,'readonly',0),(3,1,'writeable',1);
INSERT INTO host (id,name) VALUES(1,'laptop');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES(2,1,'nfs',1,1,0);
