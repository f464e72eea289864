INSERT INTO volume_schedule (job_id,volume_id,enabled,action,minute,hour,dayofmonth,month,dayofweek) VALUES(8,'data',1,1,'0','3','*','*','*');
