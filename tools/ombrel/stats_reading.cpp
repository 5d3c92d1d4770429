// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/stats_reading.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <list>
#include <map>
#include <vector>

#include "ombrel/logarchiver.h"
#include "platform/vesksyslog.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/held_database.h"
#include "tools/ombrel/log_reader.h"

namespace ombrel {

namespace {

using Condition = _SYSLOG_SQL_COND_tag;
using Conditions = std::list<Condition>;
using Clock = std::chrono::steady_clock;

constexpr double kRowsReadASecond = 1'000'000;
constexpr double kShortestReading = 0.005;  // seconds

std::string severityName(int severity) {
    if (severity < 0 || severity > 7) return "none";
    return PriorTypeToStr(static_cast<_SYSLOG_DB_PRIORITY_tag>(severity));
}

std::string nameOfRow(const LogRow& row, StatsBy by) {
    switch (by) {
        case StatsBy::kHost:
            return row.host;
        case StatsBy::kProgram:
            return row.program;
        case StatsBy::kSeverity:
            return severityName(row.severity);
        case StatsBy::kHour:
            return row.day + " " + row.clock.substr(0, 2) + ":00";
        case StatsBy::kDay:
            return row.day;
    }
    return {};
}

/// A name, and what asks the database for its rows.
struct Question {
    std::string name;
    Condition condition;
};

/// Nothing when the names cannot be told beforehand.
std::optional<std::vector<Question>> questionsOf(std::string path, StatsBy by) {
    std::vector<Question> questions;
    if (by == StatsBy::kSeverity) {
        for (int severity = 0; severity <= 7; ++severity)
            questions.push_back(
                {severityName(severity), {SYSLOG_SQL_FIELD_SEVERITY, SYSLOG_SQL_EQUAL, {}, severity}});
        return questions;
    }
    if (by != StatsBy::kHost && by != StatsBy::kProgram) return std::nullopt;
    const bool isHost = by == StatsBy::kHost;
    std::map<unsigned long long, std::string> keys;
    if (SyslogDBExtkeyMapGet(path, isHost ? SYSLOG_EXTKEY_HOST : SYSLOG_EXTKEY_PROGRAM, keys) != 0)
        return std::nullopt;
    for (const auto& [id, name] : keys) {
        const auto field = isHost ? SYSLOG_SQL_FIELD_HOST : SYSLOG_SQL_FIELD_PROGRAM;
        questions.push_back({name, {field, SYSLOG_SQL_EQUAL, name, 0}});
    }
    return questions;
}

/// The rows of one day are all of them, which the information record knows.
std::optional<std::string> onlyDayOf(const std::string& path) {
    DBHandler database(path, kSchemaFile);
    std::optional<std::string> day;
    if (database.DBCon() >= 0 && database.DBInfoStartStrGet() == database.DBInfoEndStrGet()) {
        day = database.DBInfoStartStrGet();
    }
    (void)database.DBDiscon();
    return day;
}

/// Asks for one name after the other, unless it turns out that reading the rows takes less. Rows without any of
/// the names are called "none".
std::optional<NameCounts> countByAsking(std::string path, const std::vector<Question>& questions,
                                        const LogFilter& filter, long long rows) {
    NameCounts counts;
    const double reading = std::max(static_cast<double>(rows) / kRowsReadASecond, kShortestReading);
    const auto begun = Clock::now();
    const auto ask = [&path](Conditions conditions) {
        return SyslogDBSelectCount(path, conditions, nullptr, nullptr);
    };
    const int all = ask(filter.conditions());
    long long named = 0;
    if (all < 0) return std::nullopt;
    for (std::size_t i = 0; i < questions.size() && named < all; ++i) {
        Conditions conditions = filter.conditions();
        conditions.push_front(questions[i].condition);
        const int found = ask(std::move(conditions));
        if (found < 0) return std::nullopt;
        if (found > 0) counts.add(questions[i].name, static_cast<unsigned long long>(found));
        named += found;
        const double seconds = std::chrono::duration<double>(Clock::now() - begun).count();
        const double asking = seconds / static_cast<double>(i + 2) * static_cast<double>(questions.size() + 1);
        if (asking > reading) return std::nullopt;
    }
    if (named < all) counts.add("none", static_cast<unsigned long long>(all - named));
    return counts;
}

/// Nothing when the rows have to be read.
std::optional<NameCounts> countCheaply(const std::string& path, const StatsWanted& wanted) {
    LogArchiver archiver;
    const long long rows = wanted.hasRegex || SyslogDBVersionGet(path) != 2 ? -1 : archiver.DBCountGet(path);
    if (rows < 0) return std::nullopt;
    const bool isWhole = wanted.filter.conditions().empty();
    NameCounts counts;
    if (wanted.by == StatsBy::kDay && isWhole) {
        const auto day = onlyDayOf(path);
        if (!day) return std::nullopt;
        if (rows > 0) counts.add(*day, static_cast<unsigned long long>(rows));
        return counts;
    }
    const auto questions = questionsOf(path, wanted.by);
    if (!questions) return std::nullopt;
    if (questions->size() == 1 && isWhole) {
        if (rows > 0) counts.add(questions->front().name, static_cast<unsigned long long>(rows));
        return counts;
    }
    return countByAsking(path, *questions, wanted.filter, rows);
}

}  // namespace

StatsBy statsByOf(std::string_view word) {
    if (word == "program") return StatsBy::kProgram;
    if (word == "severity") return StatsBy::kSeverity;
    if (word == "hour") return StatsBy::kHour;
    return word == "day" ? StatsBy::kDay : StatsBy::kHost;
}

// A working database changes while it is asked, and may be archived: it is read once, from its beginning to its
// end.
std::optional<std::string> countDatabase(const std::string& path, bool isWorking, const StatsWanted& wanted,
                                         NameCounts& counts, std::atomic<unsigned long long>& passed,
                                         const std::atomic<bool>& stop) {
    if (const auto cheap = isWorking ? std::nullopt : countCheaply(path, wanted)) {
        counts.add(*cheap);
        passed += cheap->total();
        return std::nullopt;
    }
    HeldDatabase database(path, wanted.filter);
    if (!database.open()) return path + ": " + std::strerror(errno);
    unsigned long long told = 0;
    for (;;) {
        const auto end = database.read(
            [&counts, &wanted](LogRow& row) {
                counts.add(nameOfRow(row, wanted.by));
                return true;
            },
            1);
        passed += database.rowsPassed() - told;
        told = database.rowsPassed();
        if (end == LogReader::End::kFailed) return database.error();
        if (end == LogReader::End::kEnd || stop) return std::nullopt;
    }
}

}  // namespace ombrel
