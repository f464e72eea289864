INSERT INTO service_vault (enabled,name,password,defaultjob) VALUES(0,'kept','kp','kj');
