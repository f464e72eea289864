DROP TABLE service_ftp;
CREATE TABLE service_ftp (enabled INT, masquerade TEXT, enable_masquerade INT);
