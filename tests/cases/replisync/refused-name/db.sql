INSERT INTO replisync (id,name,enabled) VALUES(1,'x'||char(10)||'[root]',1);
