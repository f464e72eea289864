DROP TABLE service_daap;
