INSERT INTO `$user` (id,uname,passwd,email,home,group_id,shell,is_privileged,last_changed,rid) VALUES
 (0,'root','$6$x$r','root','/root',0,'/bin/bash',1,'19000',NULL),
 (200001,'EXAMPLE,admin',NULL,'','/home/x',100,'/bin/bash',0,'19000',1106);
INSERT INTO `$group` (id,gname,is_privileged) VALUES(0,'root',1),(100,'users',0);
INSERT INTO `$group_has_user` (user_id,group_id) VALUES(200001,100);
