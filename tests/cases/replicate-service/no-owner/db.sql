INSERT INTO service_replicate (enabled,owner) VALUES(0,NULL);
