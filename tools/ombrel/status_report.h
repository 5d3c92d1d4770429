// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What `ombrel status` found out, before it is shown. A value that is not there is one that could not be told.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel/archive_due.h"
#include "tools/ombrel/event_records.h"

namespace ombrel {

struct ReceiverStatus {
    enum class Kind { kRfc3164, kRfc5424, kLocal, kRules, kRule };
    Kind kind = Kind::kRfc3164;
    std::string name;             ///< of a rule
    bool isWanted = false;        ///< it was switched on
    std::optional<bool> running;  ///< of a rule: it is on, and the job of the rules is running
    std::optional<int> port;
    std::string transport;  ///< "udp" or "tcp"; empty without a port
    bool tls = false;
    std::string format;                               ///< of a rule
    std::optional<unsigned long long> messages;       ///< since its job was started
    std::optional<unsigned long long> perSecond;      ///< since the look before
    std::optional<unsigned long long> lostDatagrams;  ///< by the kernel, since its socket was made
    std::optional<unsigned long long>
        lostMessages;  ///< that it took and could not keep, since its job was started
};

struct JobStatus {
    std::string name;
    std::optional<bool> running;
    bool isWanted = false;  ///< something is amiss when it is not running
};

/// How far a rule of archiving is from making a database due.
struct RuleProgress {
    ArchiveRule rule = ArchiveRule::kNone;
    long long limit = 0;    ///< rows, seconds or bytes
    long long reached = 0;  ///< of these
};

struct DatabaseStatus {
    std::string path;
    std::string device;  ///< see _SYSLOG_WORKING_DB_tag
    unsigned long long bytes = 0;
    std::optional<long long> rows;
    std::string firstDay;  ///< YYYY-MM-DD; empty when there are no rows
    std::string lastDay;
    ArchiveRule due = ArchiveRule::kNone;          ///< the first rule that holds
    std::vector<RuleProgress> rules;               ///< those that are on; none without rows
    std::optional<unsigned long long> lastMinute;  ///< rows that came in within the last minute
    bool isMoreThan = false;                       ///< they were counted no further
};

struct ArchiveStatus {
    std::string folder;
    unsigned long long count = 0;
    unsigned long long bytes = 0;
    std::string oldestDay;  ///< empty without archives
    std::string newestDay;
};

struct VolumeStatus {
    unsigned long long freeBytes = 0;  ///< for ordinary users
    unsigned long long totalBytes = 0;
};

struct StatusReport {
    long long time = 0;     ///< seconds since the epoch
    int exitCode = 0;       ///< not 0: the settings cannot be read, and what they would tell is missing
    std::string complaint;  ///< likewise: why
    std::vector<ReceiverStatus> receivers;
    std::vector<JobStatus> jobs;
    std::vector<DatabaseStatus> databases;
    std::optional<ArchiveStatus> archives;
    std::optional<VolumeStatus> volume;
    std::optional<long long> lastArchived;           ///< seconds since the epoch; 0 never
    std::optional<std::vector<EventRecord>> events;  ///< oldest first
    std::vector<std::string> notes;                  ///< what could not be told, and why
};

/// All databases together; nothing when one of them could not be looked at.
struct LastMinute {
    unsigned long long messages = 0;
    bool isMoreThan = false;
};
std::optional<LastMinute> lastMinuteOf(const StatusReport& report);

/// 0..100, of the limit.
long long percentOf(const RuleProgress& progress);
/// "RFC 3164", "this machine", "all rules", the name of a rule.
std::string receiverName(const ReceiverStatus& receiver);
/// Both kinds of losses; nothing when neither could be told.
std::optional<unsigned long long> lostOf(const ReceiverStatus& receiver);
/// "due now by count", "count 80 %, age in 2 d 3 h", "by no rule".
std::string dueText(const DatabaseStatus& database);

}  // namespace ombrel
