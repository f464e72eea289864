INSERT INTO service_cifs (user_home_directory,security) VALUES(0,'user');
INSERT INTO smb_username_map (id,unix_uname,smb_uname,type) VALUES(1,'alice','ALICE','UNAME'),(2,'root','*','UNAME');
