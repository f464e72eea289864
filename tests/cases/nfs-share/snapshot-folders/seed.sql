INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1024),('vol2','vol2',1024);
INSERT INTO share (id,zfs_name,volume_id,name,path,user_id,group_id) VALUES
 (1,'vol1/alpha','vol1','alpha','/vol1/alpha',0,0),
 (2,'vol1/beta','vol1','beta','/vol1/beta',0,0),
 (3,'vol1/gamma','vol1','gamma','/vol1/gamma',0,0),
 (4,'vol1/delta','vol1','delta','/vol1/delta',0,0),
 (5,'vol2/zeta','vol2','zeta','/vol2/zeta',0,0),
 (6,'vol2/epsilon','vol2','epsilon','/vol2/epsilon',0,0);
