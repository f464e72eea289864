INSERT INTO service_daap (enabled) VALUES(1);
