INSERT INTO `$user` (id,uname,home,group_id,shell,is_privileged) VALUES
 (0,'root','/root',0,'/bin/bash',1),(50,'daemon','/home/daemon',50,'/bin/bash',1),
 (98,'admin','/home/admin',98,'/bin/bash',1),(99,'op99','/home/op99',99,'/bin/bash',1),
 (1000,'alice','/home/alice',100,'/bin/bash',0),(1001,'bob','/home/bob',100,'/bin/bash',0);
