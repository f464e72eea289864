INSERT INTO vital_product_data (vendor,model,serial,max_chan,autospan) VALUES('Kestrava','N5550','KS1',0,0);
INSERT INTO network_if (name,mac) VALUES('eth0','00:22:3f:a9:9a:1e');
INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','data','u-1',4096);
INSERT INTO service_avahi (enabled,cifs,afp,quillfold,printer,kestrava,timemachine) VALUES(1,1,1,1,0,1,1);
