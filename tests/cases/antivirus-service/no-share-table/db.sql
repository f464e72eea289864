DROP TABLE share;
