INSERT INTO _volume (id,lv_name,blk_size) VALUES('data','data',1024);
CREATE TRIGGER no_lun0 BEFORE INSERT ON share WHEN NEW.name='lun0'
  BEGIN SELECT RAISE(ABORT,'refused'); END;
