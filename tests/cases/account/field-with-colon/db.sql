INSERT INTO `$user` (id,uname,passwd,email,home,group_id,shell,is_privileged,last_changed) VALUES
 (0,'root','$6$x$r','root','/root',0,'/bin/bash',1,'19000'),
 (1000,'trent','$6$x$t','x:/root:/bin/sh','/home/trent',100,'/bin/bash',0,'19000');
