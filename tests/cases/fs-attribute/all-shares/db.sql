INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES
  (1,'data/docs','share','data','docs','/data/docs',0,0),
  (2,'data/media','share','data','media','/data/media',0,0),
  (3,'data/Team Files','share','data','Team Files','/data/Team Files',0,0),
  (4,'data/snapview','readonly','data','snapview','/data/snapview',0,0),
  (5,'data/lun0','zvol','data','lun0','/data/lun0',0,0);
INSERT INTO zfs_attr (share_id,mb_quota,mb_reservation,mb_refquota,mb_refreservation,
                      compression,bit_rot_protection,dedup) VALUES
  (1,0,0,100,0,1,0,0),
  (2,0,0,0,0,0,1,0),
  (3,0,0,2048,0,1,1,0),
  (4,0,0,500,0,1,0,0);
