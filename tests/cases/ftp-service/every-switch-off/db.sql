INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user');
INSERT INTO service_ftp (enabled) VALUES(1);
