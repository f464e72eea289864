INSERT INTO `$user` (id,uname,passwd,fullname,email,home,group_id,shell,is_privileged,last_changed) VALUES
 (0,'root','$6$rt$RootHash',NULL,'root','/root',0,'/bin/bash',1,'19000'),
 (98,'admin','$6$ad$AdminHash',NULL,'Appliance administrator','/home/admin',98,'/bin/bash',1,'19001'),
 (1000,'alice','$6$al$AliceHash','Alice Smith','alice@example.com','/home/alice',100,'/bin/bash',0,'19500'),
 (1001,'bob','$6$bo$BobHash',NULL,'bob@example.com','/home/bob',100,'/bin/bash',0,'19501'),
 (1002,'carol','$6$ca$CarolHash',NULL,'','/home/carol',100,'/bin/bash',-1,'19502'),
 (65534,'guest','*',NULL,'nobody','/nonexistent',65534,'/usr/sbin/nologin',1,'18000');
INSERT INTO `$group` (id,gname,is_privileged,rid) VALUES
 (0,'root',1,NULL),(98,'admin',1,NULL),(100,'users',0,NULL),(1100,'staff',0,NULL),
 (1200,'oldgroup',-1,NULL),(65534,'guest',1,NULL),(200513,'Domain Users',0,513);
INSERT INTO `$group_has_user` (user_id,group_id) VALUES
 (98,98),(1002,100),(1001,100),(1000,100),(1000,1100),(1001,1200);
INSERT INTO passwordrecovery (email,question,answer,enabled,method) VALUES
 ('admin@example.com','First pet?','Rex',1,'email');
INSERT INTO `$home_folder` (user_id,snapshot_protection_enabled,quota,visible_snapdir,prev_versions) VALUES
 (1000,1,NULL,0,NULL),(1001,0,1024,1,1);
