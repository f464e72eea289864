DROP TABLE service_avahi;
