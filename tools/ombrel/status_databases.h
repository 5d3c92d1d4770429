// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The working databases and the archives, looked at again and again: what has not changed since is not read again,
// and of the rows only those that came since.
#pragma once

#include <map>
#include <string>

#include "ombrel/logarchiver.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/settings_fields.h"
#include "tools/ombrel/status_report.h"

namespace ombrel {

/// The rows that have come into one database within the last minute, by when they were received.
class MinuteCount {
public:
    /// More than these are not counted at one look.
    static constexpr unsigned long long kMost = 1'000'000;
    explicit MinuteCount(unsigned long long most = kMost) : most_(most) {}

    /// Reads the newest rows in pages, down to those of a minute ago or of the look before; false when they cannot
    /// be read.
    bool look(const std::string& path, long long now);
    /// Nothing has come since the look before.
    void pass(long long now);
    [[nodiscard]] unsigned long long messages() const { return messages_; }
    [[nodiscard]] bool isMoreThan() const { return moreThanUntil_ != 0; }

private:
    friend struct MinutePage;
    void add(long long received);
    void forgetBefore(long long oldest);

    unsigned long long most_;
    unsigned long long newestId_ = 0;  // of all that were read
    long long newestReceived_ = 0;     // with which another database has no row of that id
    std::map<long long, unsigned long long> seconds_;
    unsigned long long messages_ = 0;
    long long moreThanUntil_ = 0;  // when the rows that were not counted are older than a minute
};

class DatabaseWatch {
public:
    /// Fills in databases and archives, and says in the notes what could not be looked at.
    void look(const SettingsRecord& settings, StatusReport& report);

private:
    struct Known {
        LogFile file;
        DatabaseStatus status;
        MinuteCount minute;
        long long start = 0;  // of its first row
        long long lookedAt = 0;
        bool isThere = false;
    };
    void lookAtDatabase(const LogFile& file, StatusReport& report);
    static void probe(Known& known, StatusReport& report);

    LogArchiver archiver_;
    std::map<std::string, Known> known_;
};

/// Fills in which rule of the archiver makes the database due, and how far each that is on has come; nothing of a
/// database without rows or whose rows are not known.
/// @param start  time of its first row
void addDue(const LogArchiver& archiver, long long start, long long now, DatabaseStatus& database);

}  // namespace ombrel
