INSERT INTO service_avahi (enabled,cifs,afp,quillfold,printer,kestrava,timemachine) VALUES(7,7,7,7,7,7,7);
