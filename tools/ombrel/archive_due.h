// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which rule makes a working database due, and when one will. Pure.
#pragma once

#include <optional>
#include <string>

#include "ombrel/logarchiver.h"

namespace ombrel {

/// What the archiver's probes say of a database.
struct Probed {
    long long rows = 0;       ///< -1: cannot be read
    long long firstTime = 0;  ///< seconds since the epoch, 0 without rows
    int sizeMib = 0;          ///< -1: not known
};

enum class ArchiveRule { kNone, kCount, kAge, kSize };
/// "count", "age", "size"; "" of none.
const char* ruleName(ArchiveRule rule);

struct DueState {
    ArchiveRule rule = ArchiveRule::kNone;  ///< the first that holds, as the archiver tries them
    // Without one, what is missing of each rule that is on.
    std::optional<long long> dueAt;  ///< by age, seconds since the epoch
    std::optional<long long> rowsMissing;
    std::optional<long long> mibMissing;

    [[nodiscard]] bool isDue() const { return rule != ArchiveRule::kNone; }
};

/// By ArchCount, ArchInterval and ArchSize, in this order.
DueState dueState(const LogArchiver& archiver, const Probed& database, long long now);

/// "due: more than 5,000 rows", "at 2024-03-10 12:00:01, after 300 more rows".
std::string dueText(const DueState& state, const LogArchiver& archiver, const Probed& database);

}  // namespace ombrel
