// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Databases of the old layout and an upgrade that can be stopped, for the tests of the upgrade.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/vesksyslog.h"
#include "tests/receiver/database_probe.h"
#include "tools/ombrel-upgrade/conversion.h"

namespace ombrel {

/// Runs SQL on the file, which is made when it is missing.
inline void runSql(const std::string& path, const std::string& sql) {
    Connection connection;
    ASSERT_EQ(connection.open(path, OpenMode::kCreate), 0) << path;
    ASSERT_EQ(connection.execute(sql.c_str()), 0) << connection.lastMessage();
}

constexpr const char* kOldSchema =
    "CREATE TABLE logs (id INTEGER PRIMARY KEY, host, facility, prio, ldate, ltime, program, msg);";

/// Rows a minute apart, with what a row holds at least.
inline std::string oldRowsSql(int rows, int first = 1) {
    return "WITH RECURSIVE n(i) AS (SELECT " + std::to_string(first) +
           " UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(first + rows - 1) +
           ") INSERT INTO logs SELECT i, 'host' || i % 5, 'local' || i % 8, i % 8, date(1709424000 + i * 60, "
           "'unixepoch'),"
           " time(1709424000 + i * 60, 'unixepoch'), 'program' || i % 7, 'message ' || i FROM n;";
}

/// The lines of a text export, whatever the layout.
inline std::vector<std::string> exported(std::string path) {
    struct Keys {
        std::map<unsigned long long, std::string> hosts, programs, facilities;
        bool resolves = false;
        std::vector<std::string> lines{};
    } keys;
    keys.resolves = SyslogDBExtkeyMapGet(path, SYSLOG_EXTKEY_HOST, keys.hosts) == 0 &&
                    SyslogDBExtkeyMapGet(path, SYSLOG_EXTKEY_PROGRAM, keys.programs) == 0 &&
                    SyslogDBExtkeyMapGet(path, SYSLOG_EXTKEY_FACILITY, keys.facilities) == 0;
    const auto addLine = [](_SYSLOG_LOG_DATA_tag& row, void* context) {
        auto& all = *static_cast<Keys*>(context);
        const auto text = [&](auto& map, const std::string& id) {
            return all.resolves ? map[std::stoull(id)] : id;
        };
        all.lines.push_back(row.rowId + '\t' + row.date + '\t' + row.time + '\t' + PriorTypeToStr(row.priority) +
                            '\t' + text(all.hosts, row.hostId) + '\t' + text(all.facilities, row.facilityId) +
                            '\t' + text(all.programs, row.programId) + '\t' + row.message);
        return 0;
    };
    std::list<_SYSLOG_SQL_COND_tag> every;
    EXPECT_EQ(SyslogDBSelect(path, every, nullptr, nullptr, addLine, &keys, false), 0) << path;
    return keys.lines;
}

/// Remembers what it is told, and stops or does something else at the wanted moment.
class TestWatch : public UpgradeWatch {
public:
    struct Step {
        UpgradeStage stage;
        long long done;
        long long total;
        bool operator==(const Step&) const = default;
    };
    void progress(UpgradeStage stage, long long done, long long total) override {
        steps.push_back({stage, done, total});
        if (const auto act = atStep) act(steps.back());  // a copy, since it may take itself away
    }
    [[nodiscard]] bool stopWanted() const override { return stop; }
    void stopAt(UpgradeStage stage, long long done) {
        atStep = [this, stage, done](const Step& step) { stop = step.stage == stage && step.done >= done; };
    }
    /// For another run.
    void forget() {
        steps.clear();
        atStep = nullptr;
        stop = false;
    }
    /// The first number of each stage.
    [[nodiscard]] long long beganAt(UpgradeStage stage) const {
        for (const Step& step : steps)
            if (step.stage == stage) return step.done;
        return -1;
    }

    std::vector<Step> steps;
    std::function<void(const Step&)> atStep;
    bool stop = false;
};

inline ConversionOptions testOptions(long long pageRows = 100) {
    return {OMBREL_SCHEMA_FILE, pageRows};
}

}  // namespace ombrel
