INSERT INTO service_snmp (enabled) VALUES(1);
DROP TABLE service_https;
