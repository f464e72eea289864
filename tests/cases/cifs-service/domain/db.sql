INSERT INTO service_cifs (user_home_directory,security,workgroup,realm,orgunit,restrict_ou,no_sync_ads,oplocks,map_to_guest,password_server,allow_trusted_domains,domain_admin_user,hostname_lookups,join_ads_failed,idmap_backend) VALUES(1,'ads','EXAMPLE','EXAMPLE.COM','Sales','OU=Staff','0',0,'Never','dc1.example.com',1,'Administrator',1,1,'tdb');
INSERT INTO service_misc (key,val) VALUES('LANGUAGE','ja');
INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','c','1234-abcd',4096),('2','usbdisk',NULL,4096),('3','d','5678-ef01',4096);
