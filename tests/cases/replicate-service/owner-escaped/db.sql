INSERT INTO service_replicate (enabled,owner) VALUES(1,'Ann & Bob <ann@example.com>');
