CREATE TRIGGER refuse_clearing BEFORE DELETE ON service_avahi BEGIN SELECT RAISE(FAIL, 'refused'); END;
INSERT INTO service_avahi (enabled,cifs,afp,quillfold,printer,kestrava,timemachine) VALUES(1,1,1,1,1,1,1);
