INSERT INTO service_vault (enabled,name,password,defaultjob) VALUES(1,'alice','pw','daily');
INSERT INTO service_vault (enabled,name,password,defaultjob) VALUES(1,'bob','pw2','weekly');
