INSERT INTO share (id,zfs_name,type,volume_id,name,path,user_id,group_id) VALUES(1,'data/it''s $(touch pwned) & `touch pwned`;x','share','data','it''s $(touch pwned) & `touch pwned`;x','/data/it''s $(touch pwned) & `touch pwned`;x',0,0);
INSERT INTO zfs_attr (share_id,compression,bit_rot_protection,mb_refquota) VALUES(1,1,1,5);
