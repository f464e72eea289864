INSERT INTO service_cifs (user_home_directory,workgroup) VALUES(0,'OLD');
