// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "bench/bench_database.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "linux/common/log_layout.h"

namespace ombrel::bench {
namespace {

constexpr long long kFirstSecond = 1'700'000'000;
constexpr int kHosts = 40;
constexpr int kPrograms = 12;
constexpr int kFacilities = 24;

void demand(int resultCode, const char* what) {
    if (resultCode == 0) return;
    (void)fprintf(stderr, "bench database: %s failed with SQLite code %d\n", what, resultCode);
    exit(1);
}

std::string schema() {
    std::ifstream file(OMBREL_SCHEMA_FILE);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void fillKeys(Connection& db, const char* sql, const char* stem, int count) {
    Statement insert;
    demand(insert.prepare(db, sql), "prepare");
    for (int i = 1; i <= count; ++i) {
        const std::string name = stem + std::to_string(i);
        demand(insert.bind(1, i), "bind");
        demand(insert.bindText(2, name), "bind");
        demand(insert.run(), "insert of a key");
    }
}

void fillRows(Connection& db, long rows) {
    Statement insert;
    demand(insert.prepare(db,
                          "INSERT INTO logs (utcsec, rutcsec, sutcsec, utcoff, host, sender, facility, severity,"
                          " program, pid, msg) VALUES (?1, ?1, ?1, 3600,"
                          " ?2, ?2, ?3, ?4, ?5, ?6, ?7)"),
           "prepare");
    const std::string filling(80, '.');
    for (long i = 0; i < rows; ++i) {
        const std::string pid = std::to_string(100 + i % 900);
        const std::string message = "session opened for user backup by (uid=0) from 192.0.2." +
                                    std::to_string(i % 250) + " number " + std::to_string(i) + " " + filling;
        demand(insert.bind(1, kFirstSecond + i / 1000), "bind");
        demand(insert.bind(2, 1 + i % kHosts), "bind");
        demand(insert.bind(3, 1 + i % kFacilities), "bind");
        demand(insert.bind(4, i % 8), "bind");
        demand(insert.bind(5, 1 + i % kPrograms), "bind");
        demand(insert.bindText(6, pid), "bind");
        demand(insert.bindText(7, message), "bind");
        demand(insert.run(), "insert of a row");
    }
}

}  // namespace

void makeDatabase(const std::string& path, long rows) {
    Connection db;
    demand(db.open(path, OpenMode::kCreate), "open");
    demand(createLogDatabase(db, schema()), "schema");
    demand(db.execute("PRAGMA synchronous=OFF; BEGIN IMMEDIATE"), "begin");
    fillKeys(db, "INSERT INTO hosts (id, name) VALUES (?1, ?2)", "host-", kHosts);
    fillKeys(db, "INSERT INTO senders (id, name) VALUES (?1, ?2)", "192.0.2.", kHosts);
    fillKeys(db, "INSERT INTO programs (id, name) VALUES (?1, ?2)", "daemon", kPrograms);
    fillKeys(db, "INSERT INTO facilities (id, name) VALUES (?1, ?2)", "local", kFacilities);
    fillRows(db, rows);
    demand(db.execute("UPDATE loginfo SET (row_count, first_sec, last_sec, first_day, last_day) ="
                      " (SELECT count(*), min(utcsec), max(utcsec), date(min(utcsec + utcoff), 'unixepoch'),"
                      " date(max(utcsec + utcoff), 'unixepoch') FROM logs); COMMIT"),
           "commit");
}

void keepDatabase(const std::string& path, long rows) {
    if (access(path.c_str(), R_OK) == 0) return;
    const std::string unfinished = path + ".part";
    (void)unlink(unfinished.c_str());
    makeDatabase(unfinished, rows);
    if (rename(unfinished.c_str(), path.c_str()) != 0) exit(1);
}

}  // namespace ombrel::bench
