// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/retention_policy.h"

#include <algorithm>
#include <functional>
#include <set>
#include <tuple>

#include "tools/ombrel/archive_name.h"
#include "tools/ombrel/retention_settings.h"

namespace ombrel {

namespace {

constexpr std::size_t kNewestDays = 2;

/// The newest last days that there are.
std::set<std::string> newestDays(const std::vector<RetainedArchive>& archives) {
    std::set<std::string, std::greater<>> days;
    for (const RetainedArchive& archive : archives)
        days.insert(archive.lastDay);
    std::set<std::string> newest;
    for (const std::string& day : days) {
        if (newest.size() == kNewestDays) break;
        newest.insert(day);
    }
    return newest;
}

class Planner {
public:
    Planner(const std::vector<RetainedArchive>& archives, const std::string& today,
            const RetentionSettings& settings)
        : archives_(archives), settings_(settings), today_(dayNumber(today).value_or(0)) {
        const std::set<std::string> newest = newestDays(archives);
        for (std::size_t i = 0; i < archives.size(); ++i) {
            kept_ += archives[i].bytes;
            if (!newest.contains(archives[i].lastDay) && mayGo(archives[i])) candidates_.push_back(i);
        }
        const auto age = [&](std::size_t i) {
            const RetainedArchive& one = archives_[i];
            return std::tie(one.lastDay, one.firstDay, one.number, one.path);
        };
        std::sort(candidates_.begin(), candidates_.end(),
                  [&age](std::size_t a, std::size_t b) { return age(a) < age(b); });
    }

    RetentionPlan plan(std::optional<unsigned long long> freeBytes) {
        if (settings_.keepDays > 0) {
            removeWhile(RemovalReason::kDays, [this](const RetainedArchive& oldest) { return isTooOld(oldest); });
        }
        if (settings_.keepBytes > 0) {
            removeWhile(RemovalReason::kSize, [this](const auto&) { return kept_ > settings_.keepBytes; });
            plan_.overBytes = kept_ > settings_.keepBytes ? kept_ - settings_.keepBytes : 0;
        }
        if (settings_.freeBytes > 0 && freeBytes) {
            const auto missing = [&] {
                const unsigned long long free = *freeBytes + removed_;
                return settings_.freeBytes > free ? settings_.freeBytes - free : 0;
            };
            removeWhile(RemovalReason::kFreeSpace, [&](const auto&) { return missing() > 0; });
            plan_.missingFreeBytes = missing();
        }
        return std::move(plan_);
    }

private:
    [[nodiscard]] bool mayGo(const RetainedArchive& archive) const {
        const auto last = dayNumber(archive.lastDay);
        return last && *last > 0 && *last < today_ - 1 && !archive.isBusy;
    }
    [[nodiscard]] bool isTooOld(const RetainedArchive& archive) const {
        return *dayNumber(archive.lastDay) < today_ - settings_.keepDays;
    }
    template <typename Condition>
    void removeWhile(RemovalReason reason, Condition holds) {
        for (; next_ < candidates_.size(); ++next_) {
            const RetainedArchive& oldest = archives_[candidates_[next_]];
            if (!holds(oldest)) return;
            plan_.removals.push_back({candidates_[next_], reason});
            kept_ -= oldest.bytes;
            removed_ += oldest.bytes;
        }
    }

    const std::vector<RetainedArchive>& archives_;
    const RetentionSettings& settings_;
    long long today_;
    std::vector<std::size_t> candidates_;  // the oldest first
    std::size_t next_ = 0;
    unsigned long long kept_ = 0;
    unsigned long long removed_ = 0;
    RetentionPlan plan_;
};

}  // namespace

const char* removalReasonName(RemovalReason reason) {
    constexpr const char* kNames[] = {"days", "size", "free_space"};
    return kNames[static_cast<std::size_t>(reason)];
}

std::string removalReasonText(RemovalReason reason, const RetentionSettings& settings) {
    switch (reason) {
        case RemovalReason::kDays:
            return "it ended more than " + std::to_string(settings.keepDays) + " days ago";
        case RemovalReason::kSize:
            return "the archives take more than " + gibText(settings.keepBytes);
        case RemovalReason::kFreeSpace:
            return "less than " + gibText(settings.freeBytes) + " are free";
    }
    return "";
}

RetentionPlan planRetention(const std::vector<RetainedArchive>& archives,
                            std::optional<unsigned long long> freeBytes, const std::string& today,
                            const RetentionSettings& settings) {
    return Planner(archives, today, settings).plan(freeBytes);
}

}  // namespace ombrel
