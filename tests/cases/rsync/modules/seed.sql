INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('media','media',0);
INSERT INTO share (id,zfs_name,volume_id,name,path,comment,user_id,group_id) VALUES
 (1,'vol1/public','vol1','public','/vol1/public','Public files',0,0),
 (2,'vol1/archive','vol1','archive','/vol1/archive',NULL,0,0),
 (3,'vol1/docs','vol1','docs','/vol1/docs','Docs',0,0),
 (4,'media/usb','media','usb','/media/usb','Stick',0,0),
 (5,'vol1/nullhost','vol1','nullhost','/vol1/nullhost','',0,0),
 (6,'vol1/noopt','vol1','noopt','/vol1/noopt',NULL,0,0),
 (7,'vol1/old','vol1','old','/vol1/old','Old',0,0);
INSERT INTO rsync_user_password_acl (share_id,user,password) VALUES(1,'zed','old'),(1,'alice','stale');
INSERT INTO host (id,name) VALUES(7,'pc-1');
