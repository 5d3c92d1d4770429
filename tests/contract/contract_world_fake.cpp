// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The world of the contract tests on the recording platform.
#include <algorithm>
#include <ctime>
#include <map>

#include "tests/contract/contract_world.h"
#include "tests/fake/fake_platform.h"

namespace ombrel::contract {

namespace {

using test::FakeDatabase;
using test::FakePlatform;
using test::ShareKind;

std::string formatted(long long seconds, const char* format) {
    const auto moment = static_cast<std::time_t>(seconds);
    std::tm local{};
    char text[32];
    if (localtime_r(&moment, &local) == nullptr || std::strftime(text, sizeof(text), format, &local) == 0)
        return "";
    return text;
}

/// Ids are given in order of appearance, from 1.
std::string idOf(std::map<unsigned long long, std::string>& table, const std::string& text) {
    for (const auto& [id, known] : table) {
        if (known == text) return std::to_string(id);
    }
    const unsigned long long id = table.size() + 1;
    table[id] = text;
    return std::to_string(id);
}

_SYSLOG_LOG_DATA_tag plainRow(const Row& row, std::size_t number) {
    _SYSLOG_LOG_DATA_tag data;
    data.rowId = std::to_string(number);
    data.timestamp = std::to_string(row.time);
    data.receiveTime = std::to_string(row.receiveTime == 0 ? row.time : row.receiveTime);
    data.priority = static_cast<_SYSLOG_DB_PRIORITY_tag>(row.severity);
    data.hostId = row.host;
    data.facilityId = row.facility;
    data.programId = row.program;
    data.message = row.message;
    data.date = formatted(row.time, "%Y-%m-%d");
    data.time = formatted(row.time, "%H:%M:%S");
    return data;
}

FakeDatabase version2(const std::vector<Row>& rows) {
    FakeDatabase database;
    for (const Row& row : rows) {
        _SYSLOG_LOG_DATA_tag data = plainRow(row, database.rows.size() + 1);
        data.hostId = idOf(database.keys[SYSLOG_EXTKEY_HOST], row.host);
        data.programId = idOf(database.keys[SYSLOG_EXTKEY_PROGRAM], row.program);
        data.senderId = idOf(database.keys[SYSLOG_EXTKEY_SENDER], row.sender);
        data.facilityId = idOf(database.keys[SYSLOG_EXTKEY_FACILITY], row.facility);
        data.processId = row.processId;
        data.messageId = row.messageId;
        database.rows.push_back(data);
    }
    if (rows.empty()) return database;
    const auto [first, last] =
        std::minmax_element(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.time < b.time; });
    database.start = first->time;
    database.end = last->time;
    database.startDay = formatted(first->time, "%Y-%m-%d");
    database.endDay = formatted(last->time, "%Y-%m-%d");
    return database;
}

FakeDatabase version1(const std::vector<Row>& rows) {
    FakeDatabase database;
    database.version = 1;
    for (const Row& row : rows) {
        database.rows.push_back(plainRow(row, database.rows.size() + 1));
        database.days.push_back(database.rows.back().date);
    }
    return database;
}

class FakeWorld : public ContractWorld {
public:
    [[nodiscard]] bool isFake() const override { return true; }
    [[nodiscard]] const std::string& folder() const override { return platform_.root(); }

    void writeFile(const std::string& path, const std::string& bytes) override { platform_.addFile(path, bytes); }
    [[nodiscard]] std::optional<std::string> readFile(const std::string& path) const override {
        return platform_.read(path);
    }
    [[nodiscard]] bool exists(const std::string& path) const override { return platform_.exists(path); }
    void makeFolder(const std::string& path) override { platform_.addFolder(path); }

    bool makeLogDatabase(const std::string& path, const std::vector<Row>& rows) override {
        platform_.addDatabase(path, version2(rows));
        return true;
    }
    bool makeVersion1Database(const std::string& path, const std::vector<Row>& rows) override {
        platform_.addDatabase(path, version1(rows));
        return true;
    }
    bool makeJob(const std::string& job, JobKind kind) override {
        if (kind != JobKind::kReadyAtOnce) return refuse("the fake platform runs no processes");
        platform_.jobs[job] = 0;
        return true;
    }
    bool makeShare(const std::string& name, const std::string& path) override {
        platform_.shares.push_back({name, path, ShareKind::kLocal});
        return true;
    }
    [[nodiscard]] std::string whyNot() const override { return whyNot_; }

private:
    bool refuse(const std::string& why) {
        whyNot_ = why;
        return false;
    }

    FakePlatform platform_;
    std::string whyNot_;
};

}  // namespace

std::unique_ptr<ContractWorld> makeContractWorld() {
    return std::make_unique<FakeWorld>();
}

}  // namespace ombrel::contract
