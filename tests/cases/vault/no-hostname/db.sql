INSERT INTO service_vault (enabled,name,password,defaultjob) VALUES(1,'carol','c-pw','all-jobs');
