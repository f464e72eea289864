INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user');
DROP TABLE service_ftp;
CREATE TABLE service_ftp (upload_resume INT, use_reverse_dns INT, server_transfer_log INT, port INT, masquerade TEXT, enable_masquerade INT, passive_range_min INT, passive_range_max INT, auth_mode TEXT, max_upload_rate INT, max_download_rate INT, ftps INT, force_ftps INT);
INSERT INTO service_ftp VALUES(0,0,0,21,'',0,32768,65535,'user',0,0,0,0);
