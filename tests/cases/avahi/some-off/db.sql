-- AFP, the web UI, the printer and Time Machine are switched off: their old
-- files go.  The product data holds markup, which is escaped; with 4
-- channels the RAID word is AutoSpan2 although autospan is 0.
INSERT INTO vital_product_data (vendor,model,serial,max_chan,autospan) VALUES('Acme & <Sons>','NAS "Pro"','O''Brien-7',4,0);
INSERT INTO network_if (name,mac) VALUES('eth0','00:22:3f:a9:9a:1e');
INSERT INTO service_avahi (enabled,cifs,afp,quillfold,printer,kestrava,timemachine) VALUES(1,1,0,0,0,1,0);
