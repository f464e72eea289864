INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/web1','vol1','web1','/vol1/web1',0,0),(2,'vol1/web2','vol1','web2','/vol1/web2',0,0),
 (3,'vol1/web3','vol1','web3','/vol1/web3',0,0),(4,'vol1/web4','vol1','web4','/vol1/web4',0,0);
INSERT INTO cifs_share_option (share_id,cifs_access) VALUES(1,'writeable'),(2,'writeable'),(3,'writeable'),(4,'writeable');
INSERT INTO zfs_attr (share_id) VALUES(1),(2),(3),(4);
INSERT INTO `$application_on_share` (zfs_name,app_name) VALUES
 ('vol1/web1','cms'),('vol1/web2','blog'),('vol1/web3','alpha'),('vol1/web3','photos'),('vol1/web3','zeta'),('vol1/web4','none');
