INSERT INTO backup (id,name,enabled,sch_every,sch_start,sch_end,sch_dow) VALUES(1,'fine',1,6,0,23,127);
INSERT INTO backup (id,name,enabled,sch_every,sch_start,sch_dow) VALUES(2,'late',1,1,20,127);
