-- No announcement settings at all: every service counts as switched off.
INSERT INTO vital_product_data (vendor,model,serial,max_chan,autospan) VALUES('Kestrava','N5550','KS0042',0,0);
