INSERT INTO _volume (id,lv_name,blk_size) VALUES('fresh','fresh',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES(2,'fresh/new','fresh','new','/fresh/new',0,0);
INSERT INTO snapshot_management (share_id) VALUES(2);
