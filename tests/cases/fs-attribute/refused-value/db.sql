INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES
  (1,'data/docs','share','data','docs','/data/docs',0,0),
  (2,'data/media','share','data','media','/data/media',0,0);
INSERT INTO zfs_attr (share_id,compression,bit_rot_protection,mb_refquota) VALUES
  (1,1,0,100),
  (2,'1'||char(10)||'refquota = 9',0,5);
