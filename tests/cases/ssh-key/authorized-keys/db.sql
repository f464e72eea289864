INSERT INTO `$user` (id,uname,home,group_id,shell,is_privileged) VALUES
 (0,'root','/root',0,'/bin/bash',1),(50,'daemon','/home/daemon',50,'/bin/bash',1),
 (98,'admin','/home/admin',98,'/bin/bash',1),(99,'op99','/home/op99',99,'/bin/bash',1),
 (1000,'alice','/home/alice',100,'/bin/bash',0),(1001,'bob','/home/bob',100,'/bin/bash',0);
INSERT INTO ssh_public_key (id,user_id,serve_for,type,key,comment,fingerprint,Title) VALUES
 (1,1000,'rsync','ssh-ed25519','AAAAC3NzaC1lZDI1NTE5AAAAIGz4+KYb3MPMaW2u7DM+tlh+DY0lQD1maKsoDw/m40jO','alice@laptop','f8:33:7c:af:f4:b5:88:cb:a1:bd:42:57:f0:68:b5:45','laptop backup'),
 (2,1000,'all','ssh-rsa','AAAAB3NzaC1yc2EAAAADAQABAAAAgQC4fA3QJyoCDOkHl3/2W+UKaH7MuEKq6G1G6Lm33vOYZvdRAYUUjTGsxlTpObMMXZUkdgAnp0mQpDV2hyWwxLKwX1OJVdGLPczf9Kz16mjY/Lo2GXJxMRvF+DsgzlLKHwOa9P/tHomc3iC9Slm1kKEeTPXpNUODhc0N9dHd85avyQ==','alice work key','6e:1f:f5:c9:77:6e:7c:72:f3:1a:93:26:9b:10:55:39','work'),
 (3,0,'all','ecdsa-sha2-nistp256','AAAAE2VjZHNhLXNoYTItbmlzdHAyNTYAAAAIbmlzdHAyNTYAAABBBKOcn3seYLuY/vbEu8QGeLtB8zTkOnYzsxF0rotN8J0VUPGnFy78z4zgM0AuK30HoQvhdUXARzSnTScH39N4BVg=','root@console','cf:35:dd:54:96:a5:8b:79:e2:c1:67:4d:e5:a5:a4:be','console'),
 (4,98,'all','ssh-ed25519','AAAAC3NzaC1lZDI1NTE5AAAAIKxo70ySongRVyUMvSiDBpPdnpGULY2q1sjM6BTKubxo','admin@desk','61:ab:16:d1:b9:aa:1e:c0:c9:8b:2a:c1:4d:be:d7:e1','desk'),
 (5,0,'all','ssh-ed25519','AAAAC3NzaC1lZDI1NTE5AAAAIKxo70ySongRVyUMvSiDBpPdnpGULY2q1sjM6BTKubxo','admin@desk','61:ab:16:d1:b9:aa:1e:c0:c9:8b:2a:c1:4d:be:d7:e1','desk (root)'),
 (6,50,'all','ssh-ed25519','AAAAC3NzaC1lZDI1NTE5AAAAIC1GHV3p2sWn+F/qyB37pfG6r1+0h/XDriora2wfpjSN','daemon key','ac:29:78:56:1b:d3:38:b8:6d:17:fa:b5:ed:af:e3:34','daemon'),
 (7,77,'rsync','ssh-rsa','AAAAB3NzaC1yc2EAAAADAQABAAABAQDK7Vrim54uZIxSaNJemCrUJ3qF543GKSXky77PUPdLwwJpriPCOdG0nr14XLqYduPoVXH/oW62u5AM2nSQQ1DT1+u9RGsMaMLDm8R/fYeRZTr8j0utp3Yqg13mZZTovhEPCJtvvp1+ibVuD14u1EcyxWsd3qcaYkx17P0Qg2rJvqmgH/nuOm6UD503zdp+O93tl4I9jv7KTvylCiS5k/1Ijfy5dqBQZZuFbw1fPnhphejRID4HhKmOArF8rDuwxJ3Cg4+3nc799LA0tAAty1AaREWpj/NN/xhLf4ftKQGQUQlcnjP0QfBhA3Oqh7dkwmw4evZbc0PYV93Zlna7E1Hn',NULL,'91:c4:e9:a6:83:6e:31:ee:0a:38:6c:da:a7:22:e9:89','orphan');
