INSERT INTO service_vault (enabled,name,password,defaultjob) VALUES(0,'bob smith','two words',NULL);
