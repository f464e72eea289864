INSERT INTO service_nfs (enabled,threads,nfsv4,domain) VALUES(1,8,1,'example.com' || char(10) || 'Nobody-User = root');
