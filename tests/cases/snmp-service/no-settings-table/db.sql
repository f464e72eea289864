DROP TABLE service_snmp;
