INSERT INTO service_replicate (enabled,owner) VALUES(1,'old');
