INSERT INTO service_replicate (enabled,owner) VALUES(1,'ann' || char(10) || 'bob');
