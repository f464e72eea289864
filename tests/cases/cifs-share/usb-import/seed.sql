INSERT INTO _volume (id,lv_name,blk_size) VALUES('vol1','vol1',1),('media','media',0);
