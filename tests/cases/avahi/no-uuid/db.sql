-- Only Time Machine, on an appliance whose volumes have no uuid and that
-- has no eth0: both values are announced empty.  The vendor, which only
-- the discovery record announces, is not judged.
INSERT INTO vital_product_data (vendor,model,serial,max_chan,autospan) VALUES('a'||char(10)||'b',NULL,NULL,NULL,NULL);
INSERT INTO network_if (name,mac) VALUES('eth1','00:22:3f:a9:9a:1f');
INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','data',NULL,4096);
INSERT INTO service_avahi (enabled,cifs,afp,quillfold,printer,kestrava,timemachine) VALUES(1,0,0,0,0,0,1);
