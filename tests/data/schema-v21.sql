-- A database at schema version 21: `$user` of version 11 with `is_locked`
-- (15) and `shell_access` (19), `$group` as version 18 left it.
CREATE TABLE `$user` ( `id` INT NOT NULL, `uname` VARCHAR(45) NOT NULL COLLATE NOCASE, `passwd` VARCHAR(45) NULL COLLATE NOCASE, `fullname` VARCHAR(45) NULL COLLATE NOCASE, `email` VARCHAR(255) NULL COLLATE NOCASE, `home` VARCHAR(45) NULL COLLATE NOCASE, `group_id` INT NULL, `shell` VARCHAR(45) NULL COLLATE NOCASE, `is_privileged` TINYINT(1) NOT NULL, `last_changed` VARCHAR(45) NULL COLLATE NOCASE, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY (`id`));
ALTER TABLE `$user`ADD COLUMN `is_locked` TINYINT(1) NOT NULL DEFAULT 0;
ALTER TABLE `$user`ADD COLUMN `shell_access` TINYINT(1) NOT NULL DEFAULT 0;
CREATE INDEX `$user_rid` ON `$user` (`rid` ASC);
CREATE TABLE `$group` ( `id` INT NOT NULL, `gname` VARCHAR(45) NOT NULL COLLATE NOCASE, `is_privileged` TINYINT(1) NOT NULL, `rid` INT NULL, `dn` VARCHAR(255) NULL COLLATE NOCASE, PRIMARY KEY (`id`));
CREATE INDEX `$group_rid` ON `$group` (`rid` ASC);
CREATE TABLE `$group_has_user` ( `user_id` INT NOT NULL, `group_id` INT NOT NULL, PRIMARY KEY (`user_id`, `group_id`));
INSERT INTO `$user` (id,uname,passwd,home,group_id,shell,is_privileged,rid,dn,is_locked,shell_access) VALUES (0,'root','$6$r','/root',0,'/bin/bash',1,NULL,NULL,0,0), (100,'Alice','$6$a','/home/Alice',100,'/bin/bash',0,NULL,NULL,1,1), (70001,'bob','$6$b','/home/DOM/bob',70000,'/bin/false',0,1105,'CN=bob',0,0);
INSERT INTO `$group` (id,gname,is_privileged,rid,dn) VALUES (100,'Staff',0,NULL,NULL), (70000,'domain users',0,513,'CN=Domain Users');
INSERT INTO `$group_has_user` VALUES (100,100), (70001,70000);
PRAGMA user_version=21;
