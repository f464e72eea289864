-- A valid row in every table the service exporters read; each guarded
-- column's good value is the one the hostile-value test in test_service.cpp
-- surrounds with hostile texts.
INSERT INTO service_cifs (user_home_directory,security,workgroup,realm,orgunit,restrict_ou,
  no_sync_ads,oplocks,map_to_guest,password_server,allow_trusted_domains,domain_admin_user,
  hostname_lookups,idmap_backend)
  VALUES(0,'user','WORKGROUP','EXAMPLE.COM','Sales','Staff','0',1,'Never','dc1',0,'Administrator',0,'rid');
INSERT INTO _volume (id,lv_name,uuid,blk_size) VALUES('1','c','1234-abcd',4096);
INSERT INTO share (id,zfs_name,type,name,path,user_id,group_id) VALUES(1,'c/lun1','zvol','lun1','/c/lun 1',0,0);
INSERT INTO smb_username_map (id,unix_uname,smb_uname,type) VALUES(1,'alice','ALICE','UNAME');
INSERT INTO service_nfs (enabled,threads,nfsv4,domain) VALUES(1,8,1,'example.com');
INSERT INTO service_ftp (enabled,enable_masquerade,masquerade) VALUES(1,1,'192.0.2.10');
INSERT INTO service_replicate (enabled,owner) VALUES(1,'alice@example.com');
INSERT INTO service_misc VALUES('MOTTO','my files',NULL,NULL);
INSERT INTO service_snmp (enabled,allow_host,community,trap_destination,contact,location)
  VALUES(1,'10.0.0.0/8','public','10.0.0.1','ops team','Server room 2');
