INSERT INTO service_snmp (enabled,contact) VALUES(0,'ops'||char(10)||'rocommunity evil');
