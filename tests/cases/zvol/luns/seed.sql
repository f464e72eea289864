INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
