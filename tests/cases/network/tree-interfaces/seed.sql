INSERT INTO network_if (name,mac) VALUES('old0','00:00:00:00:00:01');
