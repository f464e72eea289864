INSERT INTO service_ssh (password_authentication) VALUES('1' || char(10) || 'PermitRootLogin no');
