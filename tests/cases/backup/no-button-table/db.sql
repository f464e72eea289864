DROP TABLE backup_button_jobs;
