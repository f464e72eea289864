INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user'),(0,'user');
