INSERT INTO service_nfs (enabled,threads,nfsv4,domain) VALUES(1,8,0,NULL);
