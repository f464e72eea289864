INSERT INTO service_replicate (enabled,owner,priv_data) VALUES(1,'old','x');
