INSERT INTO _lang_supported (id,lang,spell) VALUES(7,'it','Italiano');
INSERT INTO _dictionary (id,lang_id,str) VALUES('welcome',7,'Benvenuto');
