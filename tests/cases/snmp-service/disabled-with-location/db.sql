INSERT INTO service_snmp (enabled,allow_host,community,trap_destination,contact,location) VALUES(0,'10.0.0.0/8','secret','10.0.0.1','','Rack 4');
