INSERT INTO `$user` (id,uname,passwd,email,home,group_id,shell,is_privileged,last_changed) VALUES(1000,'old','$6$o$Old','','/home/old',100,'/bin/bash',0,'19000');
INSERT INTO `$group` (id,gname,is_privileged) VALUES(100,'users',0);
INSERT INTO `$group_has_user` (user_id,group_id) VALUES(1000,100);
