INSERT INTO `$user` (id,uname,home,group_id,is_privileged) VALUES(1000,'alice','/home/alice',100,0);
INSERT INTO ssh_public_key (user_id,type,key,fingerprint,Title) VALUES(1000,'ssh-ed25519','AAAA','x','t');
