-- SPDX-License-Identifier: Apache-2.0
-- SPDX-FileCopyrightText: the Ombrel authors
--
-- A log database, layout version 2. One row of `logs` is one message; hosts, programs, senders and
-- facilities are kept once and named by id. `loginfo` is the information record: one row, brought up to
-- date in each transaction that adds rows, so that questions about a database never read its rows.
-- Texts are the bytes that came; only NUL is stored as the four characters #000 (RFC 5424 section 8.2).

CREATE TABLE logs (
    id       INTEGER PRIMARY KEY, -- rises with the arrival of the rows
    utcsec   INTEGER NOT NULL,    -- the row's own time, seconds since the epoch
    rutcsec  INTEGER NOT NULL,    -- when it was received
    sutcsec  INTEGER,             -- when it was sent, as the sender says; NULL when it does not say
    utcoff   INTEGER NOT NULL,    -- local time of the box at utcsec less UTC, in seconds
    host     INTEGER NOT NULL,    -- hosts.id
    sender   INTEGER NOT NULL,    -- senders.id
    facility INTEGER NOT NULL,    -- facilities.id
    severity INTEGER NOT NULL,    -- 0..7, RFC 5424 section 6.2.1
    program  INTEGER NOT NULL,    -- programs.id
    pid      TEXT,                -- PROCID of RFC 5424, the number in brackets of RFC 3164
    msgid    TEXT,                -- MSGID of RFC 5424
    sdata    TEXT,                -- STRUCTURED-DATA of RFC 5424
    msg      TEXT NOT NULL
);

CREATE TABLE hosts      (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE programs   (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE senders    (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE facilities (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);

CREATE TABLE loginfo (
    version   INTEGER NOT NULL,   -- 2
    row_count INTEGER NOT NULL,
    first_sec INTEGER,            -- least utcsec, NULL without rows
    last_sec  INTEGER,            -- greatest utcsec
    first_day TEXT,               -- least local day, YYYY-MM-DD
    last_day  TEXT                -- greatest local day
);
INSERT INTO loginfo (version, row_count) VALUES (2, 0);

-- The receipt ids of the last batch of each receiver, stored with its rows: a batch that is sent again
-- after a crash is recognised by them.
CREATE TABLE receipts (receiver TEXT PRIMARY KEY, ids BLOB NOT NULL) WITHOUT ROWID;
