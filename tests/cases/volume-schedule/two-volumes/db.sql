INSERT INTO volume_schedule (job_id,volume_id,enabled,action,minute,hour,dayofmonth,month,dayofweek) VALUES(1,'data',1,2,'30','2','*','*','sun');
INSERT INTO volume_schedule (job_id,volume_id,enabled,action,minute,hour,dayofmonth,month,dayofweek) VALUES(2,'data',0,3,'<b>&amp;','"x"','1','*','*');
INSERT INTO volume_schedule (job_id,volume_id,enabled,action,minute,hour,dayofmonth,month,dayofweek) VALUES(5,'backup',1,1,'*/15','8-18','1-15','jan,jul','mon-fri');
INSERT INTO volume_schedule (job_id,volume_id,enabled,action,minute,hour,dayofmonth,month,dayofweek) VALUES(9,'Data',1,4,'0','0','*','*','*');
