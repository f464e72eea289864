INSERT INTO service_cifs (user_home_directory,workgroup) VALUES(0,'OFFICE');
INSERT INTO smb_username_map (unix_uname,smb_uname,type) VALUES('alice','ALICE','UNAME');
