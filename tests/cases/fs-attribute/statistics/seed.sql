INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES
  (1,'data/docs','share','data','docs','/data/docs',0,0),
  (2,'data/snapview','readonly','data','snapview','/data/snapview',0,0),
  (3,'data/empty','share','data','empty','/data/empty',0,0);
INSERT INTO `$snapshot` (zfs_name,name,type,created_on) VALUES
  ('data/snapview','s1',4,1700000000),
  ('data/snapview','s2',4,1700086400),
  ('data/docs','s9',4,1800000000);
