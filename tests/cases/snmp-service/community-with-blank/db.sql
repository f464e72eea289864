INSERT INTO service_snmp (enabled,community) VALUES(1,'public default');
