INSERT INTO volume_schedule (job_id,volume_id,enabled,action,minute,hour,dayofmonth,month,dayofweek) VALUES(99,'gone',1,1,'0','0','*','*','*');
