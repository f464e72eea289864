INSERT INTO `$user` (id,uname,passwd,fullname,email,home,group_id,shell,is_privileged,last_changed,rid) VALUES
 (0,'root','$6$rt$Ro0tHashRo0tHash',NULL,'root','/root',0,'/bin/bash',1,'19000',NULL),
 (98,'admin','$6$ad$AdminHashAdminHash',NULL,'Appliance administrator','/home/admin',98,'/bin/bash',1,'19001',NULL),
 (99,'daemon99','*',NULL,'','/nonexistent',99,'/bin/bash',1,'19002',NULL),
 (1000,'alice','$6$al$AliceHash','Alice Smith','alice@example.com','/home/alice',100,'/bin/bash',0,'19500',NULL),
 (1001,'bob','$6$bo$BobHash',NULL,'','/home/bob',100,'/bin/false',0,'19501',NULL),
 (1002,'carol','$6$ca$CarolHash',NULL,'Carol','/home/carol',100,'/bin/bash',-1,'19502',NULL),
 (1003,'dave',NULL,NULL,'Dave','/home/dave',100,'/bin/sh',0,NULL,NULL),
 (40000,'svc','!',NULL,'service','/var/lib/svc',40000,'/usr/sbin/nologin',1,'19003',NULL),
 (65534,'guest','*',NULL,'nobody','/nonexistent',65534,'/usr/sbin/nologin',1,'18000',NULL),
 (200001,'jdoe','$6$dm$DomainHash',NULL,'John Doe','/home/EXAMPLE/jdoe',200513,'/bin/bash',0,'19600',1105);
