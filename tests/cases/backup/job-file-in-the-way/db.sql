INSERT INTO backup (id,name) VALUES(1,'x');
