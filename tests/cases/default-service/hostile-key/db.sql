INSERT INTO service_misc VALUES('X;touch /tmp/p','1',NULL,NULL);
