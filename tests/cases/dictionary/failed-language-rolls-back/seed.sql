INSERT INTO _lang_supported (id,lang,spell) VALUES(5,'it','Italiano');
