-- A history as cg_recorderd wrote it while the file had version 2: a real daemon with the modules m1 and m2,
-- every outcome, restarts of both programs, a late answer, checks that stand. As `sqlite3 FILE .dump` prints it.
PRAGMA auto_vacuum=INCREMENTAL;
PRAGMA application_id=1667713129;
PRAGMA user_version=2;
PRAGMA foreign_keys=OFF;
BEGIN TRANSACTION;
CREATE TABLE decisions (
  id INTEGER PRIMARY KEY,
  devid INTEGER NOT NULL, slotid INTEGER NOT NULL, sslotid INTEGER NOT NULL,
  card_name TEXT NOT NULL, serial TEXT NOT NULL,
  node_type INTEGER NOT NULL, config_dev_type INTEGER NOT NULL,
  nodeid INTEGER NOT NULL, tipc_nodeid INTEGER NOT NULL, online INTEGER NOT NULL,
  outcome TEXT NOT NULL,
  admitted INTEGER,
  requested_at INTEGER,
  decided_at INTEGER NOT NULL,
  decider TEXT NOT NULL, reason TEXT NOT NULL,
  role INTEGER,
  complete INTEGER NOT NULL);
INSERT INTO decisions VALUES(1,1,9,0,'card-9','',3,200,109,1009,1,'unasked',1,NULL,1795325231491,'','',1,1);
INSERT INTO decisions VALUES(2,1,6,0,'card-6','',2,200,106,1006,1,'exempt',1,NULL,1795325236970,'','',1,1);
INSERT INTO decisions VALUES(3,1,3,0,'card-3','',3,200,103,1003,1,'passed',1,1795325239297,1795325244451,'m2','',1,1);
INSERT INTO decisions VALUES(4,1,4,0,'card-4','',3,200,104,1004,1,'denied',0,1795325240899,1795325245347,'m2','too hot',1,1);
INSERT INTO decisions VALUES(5,1,5,0,'card-5','',3,200,105,1005,1,'withdrawn',NULL,1795325242154,1795325246574,'','',1,1);
INSERT INTO decisions VALUES(6,1,9,0,'card-9','',3,200,109,1009,1,'silence',1,1795325235155,1795325535442,'','',1,1);
INSERT INTO decisions VALUES(7,1,2,0,'card-2','',3,200,102,1002,1,'silence',1,1795325250552,1795325550648,'','',1,1);
INSERT INTO decisions VALUES(8,1,2,0,'card-2','',3,200,102,1002,1,'denied',0,1795325250552,1795325553081,'m1','late',1,1);
INSERT INTO decisions VALUES(9,1,6,0,'card-6','',2,200,106,1006,1,'exempt',1,NULL,1795325558087,'','',1,1);
INSERT INTO decisions VALUES(10,1,7,0,'card-7','',3,200,107,1007,1,'withdrawn',NULL,1795325554019,1795325558122,'','the daemon was started afresh',1,1);
INSERT INTO decisions VALUES(11,1,8,0,'card-8','',3,200,108,1008,0,'unseen',NULL,1795325560205,1795325233915,'','',1,0);
CREATE TABLE answers (
  decision_id INTEGER NOT NULL REFERENCES decisions ON DELETE CASCADE,
  number INTEGER NOT NULL,
  module TEXT NOT NULL, ret INTEGER NOT NULL, reason TEXT NOT NULL,
  at INTEGER NOT NULL, registered INTEGER NOT NULL, took_ms INTEGER,
  PRIMARY KEY (decision_id, number)) WITHOUT ROWID;
INSERT INTO answers VALUES(3,0,'m1',0,'',1795325243247,1,3949);
INSERT INTO answers VALUES(3,1,'m2',0,'',1795325244417,1,5120);
INSERT INTO answers VALUES(4,0,'m2',-1,'too hot',1795325245319,1,4419);
INSERT INTO answers VALUES(7,0,'m1',-2,'late',1795325553018,1,302465);
INSERT INTO answers VALUES(8,0,'m1',-2,'late',1795325553018,1,302465);
INSERT INTO answers VALUES(10,0,'m1',0,'',1795325554929,1,910);
CREATE TABLE silent (
  decision_id INTEGER NOT NULL REFERENCES decisions ON DELETE CASCADE,
  number INTEGER NOT NULL,
  module TEXT NOT NULL,
  PRIMARY KEY (decision_id, number)) WITHOUT ROWID;
INSERT INTO silent VALUES(6,0,'m2');
INSERT INTO silent VALUES(6,1,'m1');
INSERT INTO silent VALUES(7,0,'m2');
INSERT INTO silent VALUES(7,1,'m1');
INSERT INTO silent VALUES(10,0,'m2');
CREATE TABLE last_decisions (
  devid INTEGER NOT NULL, slotid INTEGER NOT NULL, sslotid INTEGER NOT NULL,
  decision_id INTEGER NOT NULL REFERENCES decisions ON DELETE CASCADE,
  PRIMARY KEY (devid, slotid, sslotid)) WITHOUT ROWID;
INSERT INTO last_decisions VALUES(1,3,0,3);
INSERT INTO last_decisions VALUES(1,4,0,4);
INSERT INTO last_decisions VALUES(1,5,0,5);
INSERT INTO last_decisions VALUES(1,9,0,6);
INSERT INTO last_decisions VALUES(1,2,0,8);
INSERT INTO last_decisions VALUES(1,6,0,9);
INSERT INTO last_decisions VALUES(1,7,0,10);
INSERT INTO last_decisions VALUES(1,8,0,11);
CREATE TABLE open_checks (
  id INTEGER PRIMARY KEY,
  devid INTEGER NOT NULL, slotid INTEGER NOT NULL, sslotid INTEGER NOT NULL,
  card_name TEXT NOT NULL, serial TEXT NOT NULL,
  node_type INTEGER NOT NULL, config_dev_type INTEGER NOT NULL,
  nodeid INTEGER NOT NULL, tipc_nodeid INTEGER NOT NULL, online INTEGER NOT NULL,
  requested_at INTEGER, any_will_do INTEGER NOT NULL DEFAULT 0,
  UNIQUE (devid, slotid, sslotid));
INSERT INTO open_checks VALUES(6,1,2,0,'card-2','',3,200,102,1002,1,1795325558118,0);
INSERT INTO open_checks VALUES(7,1,3,0,'card-3','',3,200,103,1003,1,1795325558110,0);
INSERT INTO open_checks VALUES(8,1,4,0,'card-4','',3,200,104,1004,1,1795325558114,0);
INSERT INTO open_checks VALUES(9,1,7,0,'card-7','',3,200,107,1007,1,1795325558122,0);
INSERT INTO open_checks VALUES(10,1,9,0,'card-9','',3,200,109,1009,1,1795325558069,0);
INSERT INTO open_checks VALUES(11,1,10,0,'card-10','',3,200,110,1010,1,1795325236054,0);
CREATE TABLE open_answers (
  check_id INTEGER NOT NULL REFERENCES open_checks ON DELETE CASCADE,
  number INTEGER NOT NULL,
  module TEXT NOT NULL, ret INTEGER NOT NULL, reason TEXT NOT NULL,
  at INTEGER NOT NULL, registered INTEGER NOT NULL, took_ms INTEGER,
  PRIMARY KEY (check_id, number)) WITHOUT ROWID;
INSERT INTO open_answers VALUES(11,0,'m2',0,'',1795325236823,1,769);
CREATE TABLE open_waiting (
  check_id INTEGER NOT NULL REFERENCES open_checks ON DELETE CASCADE,
  number INTEGER NOT NULL,
  module TEXT NOT NULL,
  PRIMARY KEY (check_id, number)) WITHOUT ROWID;
INSERT INTO open_waiting VALUES(6,0,'m2');
INSERT INTO open_waiting VALUES(6,1,'m1');
INSERT INTO open_waiting VALUES(7,0,'m2');
INSERT INTO open_waiting VALUES(7,1,'m1');
INSERT INTO open_waiting VALUES(8,0,'m2');
INSERT INTO open_waiting VALUES(8,1,'m1');
INSERT INTO open_waiting VALUES(9,0,'m2');
INSERT INTO open_waiting VALUES(9,1,'m1');
INSERT INTO open_waiting VALUES(10,0,'m2');
INSERT INTO open_waiting VALUES(10,1,'m1');
INSERT INTO open_waiting VALUES(11,0,'m1');
CREATE TABLE gaps (
  id INTEGER PRIMARY KEY,
  from_at INTEGER NOT NULL, until_at INTEGER, why TEXT NOT NULL);
INSERT INTO gaps VALUES(1,1795325554017,1795325554017,'the recorder was not running');
CREATE TABLE daemon_life (
  id INTEGER PRIMARY KEY,
  at INTEGER NOT NULL, is_start INTEGER NOT NULL,
  pid INTEGER NOT NULL, code TEXT NOT NULL, status TEXT NOT NULL);
INSERT INTO daemon_life VALUES(1,1795325225163,1,42,'','');
INSERT INTO daemon_life VALUES(2,1795325225333,0,0,'exited','0');
INSERT INTO daemon_life VALUES(3,1795325225384,1,43,'','');
INSERT INTO daemon_life VALUES(4,1795325231805,0,0,'killed','KILL');
INSERT INTO daemon_life VALUES(5,1795325231860,1,44,'','');
CREATE TABLE notes (name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
INSERT INTO notes VALUES('alive_at','1795325236801');
INSERT INTO notes VALUES('begun_at','1795325226080');
INSERT INTO notes VALUES('life','1795325231860 start 44');
INSERT INTO notes VALUES('modules','/m2/m1');
CREATE INDEX decisions_by_time ON decisions (decided_at);
CREATE INDEX decisions_by_position ON decisions (devid, slotid, sslotid, decided_at);
CREATE INDEX answers_by_module ON answers (module, at);
CREATE INDEX last_decisions_by_decision ON last_decisions (decision_id);
COMMIT;
