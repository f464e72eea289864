INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'ads');
INSERT INTO service_ftp (enabled,port,auth_mode,passive_range_min,passive_range_max,enable_masquerade,masquerade,upload_resume,user_home_directory,ftps,server_transfer_log,max_upload_rate,max_download_rate,force_ftps,use_reverse_dns) VALUES(1,2121,'anonymous',40000,40100,1,'192.0.2.10',1,1,1,1,100,512,1,1);
