INSERT INTO replisync (id,name,enabled) VALUES(1,'old',1);
