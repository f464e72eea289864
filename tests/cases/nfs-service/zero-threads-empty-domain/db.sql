INSERT INTO service_nfs (enabled,threads,nfsv4,domain) VALUES(0,0,NULL,'');
