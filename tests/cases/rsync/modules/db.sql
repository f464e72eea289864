INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('media','media',0);
INSERT INTO share (id,zfs_name,volume_id,name,path,comment,user_id,group_id) VALUES
 (1,'vol1/public','vol1','public','/vol1/public','Public files',0,0),
 (2,'vol1/archive','vol1','archive','/vol1/archive',NULL,0,0),
 (3,'vol1/docs','vol1','docs','/vol1/docs','Docs',0,0),
 (4,'media/usb','media','usb','/media/usb','Stick',0,0),
 (5,'vol1/nullhost','vol1','nullhost','/vol1/nullhost','',0,0),
 (6,'vol1/noopt','vol1','noopt','/vol1/noopt',NULL,0,0),
 (7,'vol1/old','vol1','old','/vol1/old','Old',0,0);
INSERT INTO rsync_share_option (share_id,available,passwordprotection,rsync_access) VALUES
 (1,1,'enabled','writeable'),(2,0,'enabled','readonly'),(3,1,'disabled','disabled'),
 (4,1,'ENABLED','Writeable'),(5,1,'disabled','readonly'),(7,0,'disabled','writeable');
INSERT INTO rsync_user_password_acl (share_id,user,password) VALUES
 (1,'alice','secret1'),(1,'bob','pw2'),(2,'carol','c3'),(6,'nobody','x');
INSERT INTO host (id,name) VALUES(1,'192.168.1.0/24'),(2,'pc-1'),(3,'10.0.0.5'),(4,'nullbox');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES
 (1,2,'rsync',1,1,0),(1,1,'rsync',1,1,0),(1,3,'cifs',1,1,0),(2,3,'rsync',0,0,0),(5,4,'rsync',1,1,0);
