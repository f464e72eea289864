INSERT INTO service_nfs (enabled,threads,nfsv4,domain) VALUES(1,NULL,1,'example.com');
