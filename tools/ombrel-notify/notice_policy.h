// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which notices are written, and when: a condition is told once for as long as it lasts, and a cause that goes on
// is summed up, at most once in the quiet time. Decides alone: the clock's readings come with each call, and the
// notices go to a sink.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "linux/vesksyslog/event_line.h"

namespace ombrel {

/// What must outlive a restart, so that nothing is told twice. All texts are fit to be shown.
struct NoticeRecord {
    struct Cause {
        long long toldAt = 0;            ///< by the clock of the calls
        unsigned long long pending = 0;  ///< happened since and not yet told
        std::string detail;              ///< of the last time that it happened
        friend bool operator==(const Cause&, const Cause&) = default;
    };
    std::map<std::string, Cause> causes;   ///< by name: "archive", "udp 514", "job NAME"
    std::set<std::string> failingFolders;  ///< where the last archiving failed
    std::string destination;               ///< whose free space is watched
    bool isLow = false;
    friend bool operator==(const NoticeRecord&, const NoticeRecord&) = default;
};

class NoticePolicy {
public:
    /// Takes the priority of syslog(3), LOG_WARNING or LOG_ERR, and one line of printable text.
    using Sink = std::function<void(int priority, const std::string& text)>;

    NoticePolicy(std::chrono::seconds quietTime, Sink sink)
        : quietSeconds_(quietTime.count()), sink_(std::move(sink)) {}

    // What happened, with the seconds of a clock that nobody sets.
    void event(const EventLine& line, long long now);
    void datagramsLost(std::uint16_t port, unsigned long long count, long long now);
    /// The folder that archives go to; another one than before ends what was wrong with that.
    void watchDestination(const std::string& folder);
    /// Free space there. A bound of 0 switches the notice off.
    void freeSpace(long long freeMib, long long boundMib);

    /// Tells what has been held back for the quiet time.
    void tick(long long now);

    [[nodiscard]] const NoticeRecord& record() const { return record_; }
    void restore(NoticeRecord record) { record_ = std::move(record); }

    static constexpr std::size_t kMostCauses = 64;
    static constexpr std::size_t kMostFolders = 256;

private:
    void archiveFailed(const std::string& path, long long now);
    void archiveFinished(const std::string& path);
    void jobDied(const EventLine& line, long long now);
    void happened(std::string name, unsigned long long count, const std::string& detail, long long now);
    void tell(const std::string& name, const NoticeRecord::Cause& cause, bool again);

    long long quietSeconds_;
    Sink sink_;
    NoticeRecord record_;
};

/// Safe for one line, and of a bounded length.
std::string shown(std::string_view text);

}  // namespace ombrel
