-- Every service switched on.  The channel count is 0, so the discovery
-- record says FreeSpan whatever autospan holds; the first volume without a
-- uuid is passed over.
INSERT INTO vital_product_data (vendor,model,serial,max_chan,autospan) VALUES('Kestrava','N5550','KS0042',0,1);
INSERT INTO network_if (name,mac) VALUES('eth1','00:22:3f:a9:9a:1f');
INSERT INTO network_if (name,mac) VALUES('eth0','00:22:3f:a9:9a:1e');
INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','scratch',NULL,4096);
INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('2','data','5e1f2c3a-0b1d-4e2f-8a9b-0c1d2e3f4a5b',4096);
INSERT INTO service_avahi (enabled,cifs,afp,quillfold,printer,kestrava,timemachine) VALUES(1,1,1,1,1,1,1);
