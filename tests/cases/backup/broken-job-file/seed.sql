INSERT INTO backup (id,name,enabled) VALUES(4,'kept',1);
