INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/docs','vol1','docs','/vol1/docs',0,0),
 (2,'vol1/team','vol1','team','/vol1/team',0,0),
 (3,'vol1/closed','vol1','closed','/vol1/closed',0,0),
 (4,'vol1/lab','vol1','lab','/vol1/lab',0,0),
 (5,'vol2/hidden','vol2','hidden','/vol2/hidden',0,0),
 (7,'vol1/cifsonly','vol1','cifsonly','/vol1/cifsonly',0,0);
-- An entry that the per-share file no longer lists, and one of another
-- protocol: the first goes, the second stays.  "alpha" is known already.
INSERT INTO host (id,name) VALUES(1,'old-client'),(2,'ALPHA'),(3,'smb-only');
INSERT INTO host_acl (share_id,host_id,proto,read,write,root) VALUES(2,1,'nfs',1,1,1),(2,3,'cifs',1,1,0);
