INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','../etc','u1',4096);
