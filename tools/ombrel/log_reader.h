// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The rows of one database, a stretch of ids at a time: a working database is locked for a moment each, so its
// writer never waits long. The rows of a stretch are taken out before anybody is told of them, so that nobody who
// takes his time over them keeps the database locked.
#pragma once

#include <array>
#include <climits>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/vesksyslog.h"
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
    /// Takes no more rows than this out of the database at once: for those who want few of them.
    void takeAtMost(std::size_t rows);

    /// Is told each wanted row, which it may take away; false ends the reading behind this row.
    using Sink = std::function<bool(LogRow& row)>;
    enum class End {
        kStopped,  ///< the sink wanted no more, or `stretches` were read: the next call goes on behind it
        kEnd,      ///< there are no more rows (of a working database: now), or the file is gone: see isGone()
        kFailed,   ///< `error()` says why
    };
    /// Reads at most that many stretches (0: all that there are).
    End read(const Sink& sink, unsigned stretches = 0);

    /// Rows looked at so far, wanted or not, as near as ids tell.
    [[nodiscard]] unsigned long long rowsPassed() const { return passed_; }
    /// "PATH: WHY".
    [[nodiscard]] const std::string& error() const { return error_; }
    [[nodiscard]] const std::string& path() const { return path_; }

    /// Which file it is that is read, whatever it is called meanwhile.
    struct Identity {
        unsigned long long device = 0;
        unsigned long long number = 0;
        bool operator==(const Identity&) const = default;
    };
    /// Of the file that the first rows came from; none before the first reading.
    [[nodiscard]] const std::optional<Identity>& identity() const { return identity_; }
    /// Whether the file was moved away or removed since then, and another one may stand at its path, of which no
    /// row was read. `nextId()` is where its reading can go on under its new name.
    [[nodiscard]] bool isGone() const { return isGone_; }
    /// What to give startBehind() or startBefore() of another reader, to go on where this one is.
    [[nodiscard]] long long nextId() const { return order_ == ReadOrder::kNewestFirst ? below_ : above_; }

private:
    using Keys = std::map<unsigned long long, std::string>;
    struct Batch;
    struct Stretch;

    bool begin();
    bool loadKeys();
    [[nodiscard]] const Keys& keysOf(_SYSLOG_EXTKEY_TB_TYPE_tag type) const {
        return keys_[static_cast<std::size_t>(type)];
    }
    bool isHopeless();
    bool knowsKeys(const std::vector<_SYSLOG_LOG_DATA_tag>& rows) const;
    bool isSameFile();
    std::optional<long long> edgeId(ReadOrder from);
    std::optional<Stretch> nextStretch();
    bool readBatch(const Stretch& stretch, Batch& batch);
    End deliver(Batch& batch, const Stretch& stretch, const Sink& sink);
    LogRow rowOf(_SYSLOG_LOG_DATA_tag& record) const;
    void passTo(const Stretch& stretch, long long id);
    End endOrFailure();

    std::string path_;
    const LogFilter& filter_;
    ReadOrder order_;
    long long above_ = 0;
    long long below_ = LLONG_MAX;
    unsigned long long passed_ = 0;
    std::string error_;
    std::optional<Identity> identity_;
    bool isGone_ = false;
    bool isWorking_ = false;
    int version_ = 0;  // of the layout; 0 before the first reading
    long long stretchIds_ = 0;
    std::size_t batchRows_ = 0;
    std::array<Keys, 4> keys_;  // by table type
    bool hasKeys_ = false;
};

}  // namespace ombrel
