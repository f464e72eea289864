INSERT INTO `$user` (id,uname,home,group_id,is_privileged) VALUES
 (0,'root','/root',0,1),(98,'admin','/home/admin',98,1),(1000,'alice','/home/../etc',100,0);
