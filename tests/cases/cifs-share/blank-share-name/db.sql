INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,comment,user_id,group_id) VALUES(1,'vol1/My Docs','vol1','My Docs','/vol1/My Docs','Team, "and" friends; 100%',0,0);
INSERT INTO cifs_share_option (share_id,cifs_access,cifs_recycle_age_limit,cifs_recycle_mb_limit) VALUES(1,'writeable',3,50);
INSERT INTO zfs_attr (share_id) VALUES(1);
