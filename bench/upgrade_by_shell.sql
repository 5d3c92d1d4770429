-- SPDX-License-Identifier: Apache-2.0
-- SPDX-FileCopyrightText: the Ombrel authors
--
-- The rows of old.DB into this new database, in one transaction and without a look back. The LIMIT without a limit
-- keeps the inner SELECT apart, so that each row's moment is converted once.
ATTACH 'old.DB' AS old;
BEGIN;
INSERT INTO senders (name) VALUES ('');
INSERT OR IGNORE INTO hosts (name) SELECT DISTINCT host FROM old.logs;
INSERT OR IGNORE INTO facilities (name) SELECT DISTINCT facility FROM old.logs;
INSERT OR IGNORE INTO programs (name) SELECT DISTINCT program FROM old.logs;
INSERT INTO main.logs (id, utcsec, rutcsec, utcoff, host, sender, facility, severity, program, msg)
  SELECT id, utcsec, utcsec, strftime('%s', moment) - utcsec,
    (SELECT hosts.id FROM hosts WHERE name = host), 1,
    (SELECT facilities.id FROM facilities WHERE name = facility),
    CASE prio WHEN 'emerg' THEN 0 WHEN 'alert' THEN 1 WHEN 'crit' THEN 2 WHEN 'err' THEN 3 WHEN 'warning' THEN 4
      WHEN 'notice' THEN 5 WHEN 'info' THEN 6 WHEN 'debug' THEN 7 ELSE -1 END,
    (SELECT programs.id FROM programs WHERE name = program), msg
  FROM (SELECT *, CAST(strftime('%s', moment, 'utc') AS INTEGER) AS utcsec
    FROM (SELECT *, ldate || ' ' || ltime AS moment FROM old.logs) ORDER BY id LIMIT -1)
  ORDER BY id;
UPDATE loginfo SET (row_count, first_sec, last_sec, first_day, last_day) =
  (SELECT count(*), min(utcsec), max(utcsec), date(min(utcsec + utcoff), 'unixepoch'),
    date(max(utcsec + utcoff), 'unixepoch') FROM main.logs);
COMMIT;
