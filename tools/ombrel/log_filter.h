// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which rows are wanted: all conditions have to be met. What can be asked of the database is asked there; a
// regular expression (RE2's syntax) is tried on the message of each row that is left.
#pragma once

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/vesksyslog.h"
#include "tools/ombrel/command.h"
#include "tools/ombrel/log_row.h"

namespace ombrel {

/// The words of the options, as they were given; empty ones ask for nothing.
struct FilterWords {
    std::string text;   ///< in the message, whatever the case of ASCII letters
    std::string regex;  ///< in the message
    std::string host;   ///< whole name, as are the next two
    std::string program;
    std::string facility;
    std::string severity;  ///< name or number: this severe or more
    std::string since;     ///< see time_words.h
    std::string until;
};

/// Gives a command the options --host, --program, --facility, --severity, --since, --until and --regex. The text
/// is a word, which each command places for itself.
void addFilterOptions(Command& command, FilterWords& words);

class LogFilter {
public:
    /// Reads the words at the time `now`. Nothing, or what is wrong: "--severity \"x\": expected ...".
    std::optional<std::string> read(const FilterWords& words, long long now);

    /// What the database is asked.
    [[nodiscard]] const std::list<_SYSLOG_SQL_COND_tag>& conditions() const { return conditions_; }
    /// Whether a row that the database gave is wanted. Safe for several threads.
    [[nodiscard]] bool matches(const LogRow& row) const;
    [[nodiscard]] bool matchesMessage(const std::string& message) const;

    /// Whether some of the rows that the database gives may not be wanted.
    [[nodiscard]] bool hasPattern() const { return pattern_ != nullptr; }

    /// Seconds since the epoch, both inclusive; unbounded without a value.
    [[nodiscard]] std::optional<long long> since() const { return since_; }
    [[nodiscard]] std::optional<long long> until() const { return until_; }

private:
    struct Pattern;
    std::optional<std::string> readSeverity(const std::string& word);
    std::optional<std::string> readTimes(const FilterWords& words, long long now);
    std::optional<std::string> readPattern(const std::string& word);

    std::list<_SYSLOG_SQL_COND_tag> conditions_;
    std::shared_ptr<const Pattern> pattern_;
    std::optional<long long> since_;
    std::optional<long long> until_;
};

}  // namespace ombrel
