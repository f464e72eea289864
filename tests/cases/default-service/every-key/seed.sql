INSERT INTO service_avahi VALUES(0,0,0,0,0,0,0);
