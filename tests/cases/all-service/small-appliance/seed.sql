INSERT INTO service_avahi VALUES(1,1,0,1,0,1,0);
