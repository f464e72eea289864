INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','data','0a1b2c3d-0000-4000-8000-000000000001',4096),('2','offline',NULL,4096),('3','backup','0a1b2c3d-0000-4000-8000-000000000003',4096);
INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES(1,'data/docs','cifs','1','docs','/data/docs',0,0),(2,'data/lun1','zvol','1','lun1','/data/lun1',0,0),(3,'backup/vm disk','zvol','3','vm disk','/backup/vm disk',0,0);
INSERT INTO service_anti_virus (enabled,action,ignore) VALUES(0,'delete',0);
