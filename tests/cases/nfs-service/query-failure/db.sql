DROP TABLE service_nfs;
