// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/status_report.h"

#include <algorithm>

namespace ombrel {

namespace {

/// "2 d 3 h", "3 h 4 min", "4 min", "20 s"
std::string waitText(long long seconds) {
    constexpr long long kMinute = 60;
    constexpr long long kHour = 60 * kMinute;
    constexpr long long kDay = 24 * kHour;
    const auto pair = [](long long big, const char* bigUnit, long long small, const char* smallUnit) {
        std::string text = std::to_string(big) + bigUnit;
        if (small > 0) text += " " + std::to_string(small) + smallUnit;
        return text;
    };
    if (seconds >= kDay) return pair(seconds / kDay, " d", seconds % kDay / kHour, " h");
    if (seconds >= kHour) return pair(seconds / kHour, " h", seconds % kHour / kMinute, " min");
    return seconds >= kMinute ? pair(seconds / kMinute, " min", 0, "") : pair(seconds, " s", 0, "");
}

std::string farText(const RuleProgress& progress) {
    if (progress.rule == ArchiveRule::kAge) return "age in " + waitText(progress.limit - progress.reached + 1);
    return std::string(ruleName(progress.rule)) + " " + std::to_string(percentOf(progress)) + " %";
}

}  // namespace

long long percentOf(const RuleProgress& progress) {
    const double share =
        static_cast<double>(progress.reached) / static_cast<double>(std::max(progress.limit, 1LL));
    return static_cast<long long>(std::clamp(share, 0.0, 1.0) * 100);
}

std::optional<LastMinute> lastMinuteOf(const StatusReport& report) {
    if (!report.archives) return std::nullopt;  // the databases are not known
    LastMinute sum;
    for (const DatabaseStatus& database : report.databases) {
        if (!database.lastMinute) return std::nullopt;
        sum.messages += *database.lastMinute;
        sum.isMoreThan = sum.isMoreThan || database.isMoreThan;
    }
    return sum;
}

std::string receiverName(const ReceiverStatus& receiver) {
    switch (receiver.kind) {
        case ReceiverStatus::Kind::kRfc3164:
            return "RFC 3164";
        case ReceiverStatus::Kind::kRfc5424:
            return "RFC 5424";
        case ReceiverStatus::Kind::kLocal:
            return "this machine";
        case ReceiverStatus::Kind::kRules:
            return "all rules";
        case ReceiverStatus::Kind::kRule:
            return receiver.name;
    }
    return {};
}

std::optional<unsigned long long> lostOf(const ReceiverStatus& receiver) {
    if (!receiver.lostMessages && !receiver.lostDatagrams) return std::nullopt;
    return receiver.lostMessages.value_or(0) + receiver.lostDatagrams.value_or(0);
}

std::string dueText(const DatabaseStatus& database) {
    if (!database.rows) return "?";
    if (*database.rows == 0) return "empty";
    if (database.due != ArchiveRule::kNone) return std::string("due now by ") + ruleName(database.due);
    // What comes first is told first.
    std::vector<RuleProgress> rules = database.rules;
    std::stable_sort(rules.begin(), rules.end(),
                     [](const RuleProgress& a, const RuleProgress& b) { return percentOf(a) > percentOf(b); });
    std::string text;
    for (const RuleProgress& progress : rules)
        text += (text.empty() ? "" : ", ") + farText(progress);
    return text.empty() ? "by no rule" : text;
}

}  // namespace ombrel
