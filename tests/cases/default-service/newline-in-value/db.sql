INSERT INTO service_snmp (location) VALUES('room 2' || char(10) || 'reboot');
