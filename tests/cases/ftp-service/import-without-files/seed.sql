INSERT INTO service_ftp (enabled,enable_masquerade,masquerade) VALUES(1,1,'x');
