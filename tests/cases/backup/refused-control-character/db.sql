INSERT INTO backup (id,name,enabled,dst_path) VALUES(1,'usb copy',0,'/usb'||char(27)||'[2J');
