INSERT INTO service_avahi VALUES(1,1,1,1,1,1,1);
