INSERT INTO service_ssh (password_authentication) VALUES(1);
INSERT INTO service_ssh (password_authentication) VALUES(0);
