INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user');
DROP TABLE smb_username_map;
