INSERT INTO service_ftp (enabled,upload_resume,ftps) VALUES(1,1,0);
