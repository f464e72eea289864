DROP TABLE service_misc;
