INSERT INTO `$user` (id,uname,home,group_id,is_privileged) VALUES(1000,'alice','/home/alice',100,0);
