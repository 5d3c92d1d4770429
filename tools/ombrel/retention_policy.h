// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which archives are removed, the oldest first. Pure.
//
// Never removed are, whatever the limits say: archives whose last day is today, yesterday or later; those whose
// last day is one of the two newest last days that there are, however old they may be; those that somebody is at
// work on; and those whose name says that the archiver did not know their days (1970-01-01).
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ombrel {

/// 0 of a limit: it is off.
struct RetentionSettings {
    long long keepDays = 0;            ///< archives that end more than so many days before today go
    unsigned long long keepBytes = 0;  ///< the archives together take at most so many
    unsigned long long freeBytes = 0;  ///< so many are to be free on their volume

    [[nodiscard]] bool isOn() const { return keepDays > 0 || keepBytes > 0 || freeBytes > 0; }
    bool operator==(const RetentionSettings&) const = default;
};

/// An archive with all that belongs to it.
struct RetainedArchive {
    std::string path;      ///< of the archive itself
    std::string firstDay;  ///< YYYY-MM-DD
    std::string lastDay;
    int number = 0;  ///< of several with the same days
    unsigned long long bytes = 0;
    bool isBusy = false;
};

enum class RemovalReason { kDays, kSize, kFreeSpace };
/// "days", "size", "free_space"
const char* removalReasonName(RemovalReason reason);
/// "it ended more than 30 days ago", "the archives take more than 10 GiB", "less than 5 GiB are free"
std::string removalReasonText(RemovalReason reason, const RetentionSettings& settings);

struct Removal {
    std::size_t index = 0;  ///< of the archive in the list
    RemovalReason reason = RemovalReason::kDays;
};

struct RetentionPlan {
    std::vector<Removal> removals;            ///< in the order in which they are to be made
    unsigned long long overBytes = 0;         ///< what stays above keepBytes, since the rest must not go
    unsigned long long missingFreeBytes = 0;  ///< likewise below freeBytes
};

/// @param freeBytes  on the volume of the archives; without it that limit is not looked at
/// @param today      the local day
RetentionPlan planRetention(const std::vector<RetainedArchive>& archives,
                            std::optional<unsigned long long> freeBytes, const std::string& today,
                            const RetentionSettings& settings);

}  // namespace ombrel
