INSERT INTO service_ssh (enabled,port,ui_enabled,remote_enabled,remote_port,password_authentication) VALUES(1,2222,1,1,2200,1);
