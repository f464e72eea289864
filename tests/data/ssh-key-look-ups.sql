INSERT INTO ssh_public_key (id,user_id,serve_for,type,key,comment,fingerprint,Title) VALUES
 (1,98,'all','ssh-ed25519','AAAAC3NzaC1lZDI1NTE5AAAAIKxo70ySongRVyUMvSiDBpPdnpGULY2q1sjM6BTKubxo','admin@desk','x','desk'),
 (2,0,'all','ssh-ed25519','AAAAC3NzaC1lZDI1NTE5AAAAIKxo70ySongRVyUMvSiDBpPdnpGULY2q1sjM6BTKubxo','admin@desk','x','desk (root)'),
 (3,1000,'rsync','ssh-ed25519','AAAAC3NzaC1lZDI1NTE5AAAAIGz4+KYb3MPMaW2u7DM+tlh+DY0lQD1maKsoDw/m40jO',NULL,'x','laptop');
