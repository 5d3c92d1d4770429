// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/log_filter.h"

#include <re2/re2.h>

#include <algorithm>

#include "linux/common/severity_text.h"
#include "tools/ombrel/regex_literals.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

struct LogFilter::Pattern {
    Pattern(const std::string& text, const RE2::Options& options) : compiled(text, options) {}
    RE2 compiled;
};

namespace {

/// What a pattern may take: the program of it and the states that it was seen in.
constexpr std::int64_t kPatternBytes = 16LL << 20;

RE2::Options patternOptions() {
    RE2::Options options;
    options.set_log_errors(false);
    options.set_max_mem(kPatternBytes);
    return options;
}

_SYSLOG_SQL_COND_tag textCondition(_SYSLOG_SQL_FIELD_tag field, _SYSLOG_SQL_COMPARE_tag compare,
                                   const std::string& text) {
    return {field, compare, text, 0};
}

_SYSLOG_SQL_COND_tag numberCondition(_SYSLOG_SQL_FIELD_tag field, _SYSLOG_SQL_COMPARE_tag compare,
                                     long long number) {
    return {field, compare, {}, number};
}

std::string wrongValue(const char* option, const std::string& value, const std::string& expected) {
    return std::string(option) + " \"" + value + "\": " + expected;
}

}  // namespace

void addFilterOptions(Command& command, FilterWords& words) {
    command.text("--host", "NAME", words.host, "only of this host");
    command.text("--program", "NAME", words.program, "only of this program");
    command.text("--facility", "NAME", words.facility, "only of this facility, such as local0");
    command.text("--severity", "NAME", words.severity,
                 "this severe or more: emerg, alert, crit, err, warning, notice, info, debug or 0 to 7");
    command.text("--since", "TIME", words.since, "from this time on");
    command.text("--until", "TIME", words.until, "up to this time, with it");
    command.text("--regex", "PATTERN", words.regex,
                 "the message matches this regular expression of RE2; (?i) in front: in any case of letters");
}

// The database tries the conditions in this order: first those that are cheap, and the message at the very end.
std::optional<std::string> LogFilter::read(const FilterWords& words, long long now) {
    LogFilter filter;
    const auto addName = [&filter](_SYSLOG_SQL_FIELD_tag field, const std::string& name) {
        if (!name.empty()) filter.conditions_.push_back(textCondition(field, SYSLOG_SQL_EQUAL, name));
    };
    addName(SYSLOG_SQL_FIELD_HOST, words.host);
    addName(SYSLOG_SQL_FIELD_PROGRAM, words.program);
    addName(SYSLOG_SQL_FIELD_FACILITY, words.facility);
    if (auto wrong = filter.readSeverity(words.severity)) return wrong;
    if (auto wrong = filter.readTimes(words, now)) return wrong;
    if (!words.text.empty()) {
        filter.conditions_.push_back(textCondition(SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_CONTAINS, words.text));
    }
    if (auto wrong = filter.readPattern(words.regex)) return wrong;
    *this = std::move(filter);
    return std::nullopt;
}

std::optional<std::string> LogFilter::readSeverity(const std::string& word) {
    if (word.empty()) return std::nullopt;
    const int severity = severityOfText(word);
    if (severity < 0) {
        return wrongValue("--severity", word,
                          "expected emerg, alert, crit, err, warning, notice, info, debug or 0 to 7");
    }
    // Of the old layout come rows without a severity that means anything; their number is below all others.
    conditions_.push_back(numberCondition(SYSLOG_SQL_FIELD_SEVERITY, SYSLOG_SQL_AT_LEAST, 0));
    conditions_.push_back(numberCondition(SYSLOG_SQL_FIELD_SEVERITY, SYSLOG_SQL_AT_MOST, severity));
    return std::nullopt;
}

std::optional<std::string> LogFilter::readTimes(const FilterWords& words, long long now) {
    if (!words.since.empty()) {
        since_ = timeOfWords(words.since, now, DayEnd::kFirstSecond);
        if (!since_) return wrongValue("--since", words.since, std::string("expected ") + kTimeWords);
        conditions_.push_back(numberCondition(SYSLOG_SQL_FIELD_TIME, SYSLOG_SQL_AT_LEAST, *since_));
    }
    if (!words.until.empty()) {
        until_ = timeOfWords(words.until, now, DayEnd::kLastSecond);
        if (!until_) return wrongValue("--until", words.until, std::string("expected ") + kTimeWords);
        conditions_.push_back(numberCondition(SYSLOG_SQL_FIELD_TIME, SYSLOG_SQL_AT_MOST, *until_));
    }
    if (since_ && until_ && *since_ > *until_) {
        return wrongValue("--until", words.until, "expected a time behind --since");
    }
    return std::nullopt;
}

// Texts that each message has to have to match at all are asked of the database, so that most others never leave
// it.
std::optional<std::string> LogFilter::readPattern(const std::string& word) {
    if (word.empty()) return std::nullopt;
    auto pattern = std::make_shared<const Pattern>(word, patternOptions());
    if (!pattern->compiled.ok()) return wrongValue("--regex", word, pattern->compiled.error());
    for (const std::string& literal : requiredLiterals(word, patternOptions()))
        conditions_.push_back(textCondition(SYSLOG_SQL_FIELD_MESSAGE, SYSLOG_SQL_CONTAINS, literal));
    pattern_ = std::move(pattern);
    return std::nullopt;
}

bool LogFilter::matches(const LogRow& row) const {
    return matchesMessage(row.message);
}

bool LogFilter::matchesMessage(const std::string& message) const {
    return pattern_ == nullptr || RE2::PartialMatch(message, pattern_->compiled);
}

}  // namespace ombrel
