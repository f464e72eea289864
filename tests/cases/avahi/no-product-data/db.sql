INSERT INTO service_avahi (enabled,cifs,afp,quillfold,printer,kestrava,timemachine) VALUES(1,1,1,1,1,1,1);
