INSERT INTO service_ssh (enabled,port,password_authentication) VALUES(0,22,0);
