INSERT INTO service_snmp (enabled,contact) VALUES(1,'ops@example.com');
