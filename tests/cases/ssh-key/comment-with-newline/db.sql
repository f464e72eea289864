INSERT INTO `$user` (id,uname,home,group_id,is_privileged) VALUES(1000,'alice','/home/alice',100,0);
INSERT INTO ssh_public_key (id,user_id,serve_for,type,key,comment,fingerprint,Title) VALUES
 (1,1000,'all','ssh-ed25519','AAAAC3NzaC1lZDI1NTE5AAAAIGz4+KYb3MPMaW2u7DM+tlh+DY0lQD1maKsoDw/m40jO','alice' || char(10) || 'ssh-ed25519 AAAAC3NzaC1lZDI1NTE5AAAAIC1GHV3p2sWn+F/qyB37pfG6r1+0h/XDriora2wfpjSN mallory','f8:33:7c:af:f4:b5:88:cb:a1:bd:42:57:f0:68:b5:45','laptop');
