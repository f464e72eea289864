INSERT INTO service_vault (enabled,name,password,defaultjob) VALUES(1,'alice','pw' || char(10) || 'hostname evil','daily');
