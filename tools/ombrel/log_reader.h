// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The rows of one database, a stretch of ids at a time: a working database is locked for a moment each, so its
// writer never waits long.
#pragma once

#include <climits>
#include <functional>
#include <map>
#include <string>

#include "tools/ombrel/log_filter.h"
#include "tools/ombrel/log_row.h"

namespace ombrel {

enum class ReadOrder { kOldestFirst, kNewestFirst };

/// One reader belongs to one thread at a time.
class LogReader {
public:
    /// The filter has to stay as long as the reader.
    LogReader(std::string path, const LogFilter& filter, ReadOrder order);

    /// Only rows with ids above, or below, this one.
    void startBehind(long long id);
    void startBefore(long long id);

    /// Is told each wanted row, which it may take away; false ends the reading behind this row.
    using Sink = std::function<bool(LogRow& row)>;
    enum class End {
        kStopped,  ///< the sink wanted no more, or `stretches` were read: the next call goes on behind it
        kEnd,      ///< there are no more rows (of a working database: now)
        kFailed,   ///< `error()` says why
    };
    /// Reads at most that many stretches (0: all that there are).
    End read(const Sink& sink, unsigned stretches = 0);

    /// Rows looked at so far, wanted or not, as near as ids tell.
    [[nodiscard]] unsigned long long rowsPassed() const { return passed_; }
    /// "PATH: WHY".
    [[nodiscard]] const std::string& error() const { return error_; }
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
    const LogFilter& filter_;
    ReadOrder order_;
    long long above_ = 0;
    long long below_ = LLONG_MAX;
    unsigned long long passed_ = 0;
    std::string error_;
};

}  // namespace ombrel
