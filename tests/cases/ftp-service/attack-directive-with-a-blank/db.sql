INSERT INTO service_ftp (enabled,passive_range_max) VALUES(1,'65535 1');
