INSERT INTO service_cifs (user_home_directory,security,workgroup,oplocks,hostname_lookups,allow_trusted_domains,join_ads_failed) VALUES(0,'user','WORKGROUP',1,0,0,0);
INSERT INTO service_misc (key,val) VALUES('LANGUAGE','pl');
INSERT INTO smb_username_map (unix_uname,smb_uname,type) VALUES('alice','ALICE','UNAME'),('bob','DOMAIN\bob','HASH');
