INSERT INTO service_anti_virus (enabled,action) VALUES(1,'delete');
