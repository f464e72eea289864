INSERT INTO service_snmp (location) VALUES('Room #2');
