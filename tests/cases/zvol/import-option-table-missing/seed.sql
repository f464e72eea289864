INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
ALTER TABLE zvol_share_option RENAME TO zvol_away;
