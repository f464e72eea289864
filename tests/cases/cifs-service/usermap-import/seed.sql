INSERT INTO service_cifs (user_home_directory) VALUES(0);
