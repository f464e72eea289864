INSERT INTO `$user` (id,uname,home,group_id,shell,is_privileged) VALUES
 (1000,'alice','/home/alice',100,'/bin/bash',0);
INSERT INTO ssh_public_key (id,user_id,serve_for,type,key,comment,fingerprint,Title) VALUES
 (1,1000,'RSYNC','ecdsa-sha2-nistp256','AAAAE2VjZHNhLXNoYTItbmlzdHAyNTYAAAAIbmlzdHAyNTYAAABBBKOcn3seYLuY/vbEu8QGeLtB8zTkOnYzsxF0rotN8J0VUPGnFy78z4zgM0AuK30HoQvhdUXARzSnTScH39N4BVg=','with blanks in it','cf:35:dd:54:96:a5:8b:79:e2:c1:67:4d:e5:a5:a4:be','b');
