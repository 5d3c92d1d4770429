// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The database handle, the event log and the debug sink of the fake platform.
#include "platform/vesksyslog.h"

#include <algorithm>
#include <memory>

#include "tests/fake/fake_platform.h"

using ombrel::test::FakeDatabase;
using ombrel::test::FakePlatform;

struct DBHandler::Impl {
    std::string path;
    FakeDatabase* database = nullptr;  // null while not connected
    bool inTransaction = false;
};

DBHandler::DBHandler(std::string dbPath, std::string schemaPath) : impl(new Impl{dbPath}) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("DBHandler", dbPath, schemaPath);
    platform.live.add("database handle", this);
}

DBHandler::~DBHandler() {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("~DBHandler");
    if (impl->database != nullptr) platform.live.misuse("a handle destroyed while it is connected");
    (void)platform.live.remove("database handle", this);
    delete impl;
}

int DBHandler::DBCon() {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBCon")) return -1;
    FakeDatabase* found = platform.database(impl->path);
    if (found == nullptr || !found->opens) return -1;
    impl->database = found;
    return 0;
}

int DBHandler::DBDiscon() {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("DBDiscon");
    if (impl->inTransaction) impl->database->changes.clear();
    impl->inTransaction = false;
    impl->database = nullptr;
    return 0;
}

long long DBHandler::DBInfoStartGet() {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBInfoStartGet") || impl->database == nullptr) return 0;
    return impl->database->start;
}

long long DBHandler::DBInfoEndGet() {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBInfoEndGet") || impl->database == nullptr) return 0;
    return impl->database->end;
}

long long DBHandler::DBInfoCntGet() {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBInfoCntGet") || impl->database == nullptr) return -1;
    if (impl->database->version == 1) return -1;
    return impl->database->rowCount();
}

std::string DBHandler::DBInfoStartStrGet() {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBInfoStartStrGet") || impl->database == nullptr) return "1970-01-01";
    return impl->database->startDay;
}

std::string DBHandler::DBInfoEndStrGet() {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBInfoEndStrGet") || impl->database == nullptr) return "1970-01-01";
    return impl->database->endDay;
}

int DBHandler::DBTranStart() {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBTranStart") || impl->database == nullptr) return -1;
    impl->inTransaction = true;
    return 0;
}

int DBHandler::DBTranEnd() {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBTranEnd") || impl->database == nullptr || !impl->inTransaction) return -1;
    auto& database = *impl->database;
    database.indexes.insert(database.indexes.end(), database.changes.begin(), database.changes.end());
    database.changes.clear();
    impl->inTransaction = false;
    return 0;
}

int DBHandler::DBExecute(std::string sql) {
    FakePlatform& platform = FakePlatform::current();
    if (platform.calls.enter("DBExecute", sql) || impl->database == nullptr) return -1;
    auto& database = *impl->database;
    if (std::find(database.indexes.begin(), database.indexes.end(), sql) != database.indexes.end()) return -1;
    (impl->inTransaction ? database.changes : database.indexes).push_back(sql);
    return 0;
}

Logger::Logger() {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("Logger");
    platform.live.add("event logger", this);
}

Logger::~Logger() {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("~Logger");
    (void)platform.live.remove("event logger", this);
}

void Logger::LogAddServStart(std::string description) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("LogAddServStart", description);
    platform.events.push_back("started " + description);
}

void Logger::LogAddServStop(std::string description) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("LogAddServStop", description);
    platform.events.push_back("stopped " + description);
}

void Logger::LogAddArchFinish(std::string archivePath) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("LogAddArchFinish", archivePath);
    platform.events.push_back("finished " + archivePath);
}

void Logger::LogAddArchFailed(std::string archivePath) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("LogAddArchFailed", archivePath);
    platform.events.push_back("failed " + archivePath);
}

void Debuger::MSG(int level, std::string text) {
    FakePlatform& platform = FakePlatform::current();
    platform.calls.note("MSG", level, text);
    platform.messages.push_back(std::to_string(level) + " " + text);
}
