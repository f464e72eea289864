INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
  (1,'vol1/a','vol1','a','/vol1/a',0,0),(2,'vol1/z','vol1','z','/vol1/z',0,0);
INSERT INTO afp_share_option (share_id,afp_access,afp_guest_access) VALUES
  (1,'writeable',1),(2,'writeable',1);
