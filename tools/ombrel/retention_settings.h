// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The limits of the retention as people write them, and their file: lines KEY="VALUE"; a key that is not there is
// off.
//   keep_days  days, 0..36500
//   keep_gib   GiB, or a size with a unit (500M); a whole number of MiB
//   free_gib   likewise
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel/retention_policy.h"

namespace ombrel {

constexpr const char* kRetentionFile = "/var/packages/Ombrel/target/service/conf/retention.conf";

struct RetentionRead {
    std::optional<RetentionSettings> settings;
    int exitCode = 0;  ///< without them, which has been complained of then: 77 no right to read, 78 anything else
};

/// What cannot be understood is no reason to remove anything: it is told, and nothing is read.
RetentionRead readRetention();

/// Applies words KEY=VALUE; what is wrong with the first wrong one, or nothing.
std::optional<std::string> applyRetentionWords(const std::vector<std::string>& words, RetentionSettings& settings);

/// Writes all limits into the file. False: the error record says why.
bool writeRetention(const RetentionSettings& settings);

/// "keep_days=\"30\"", one a key.
std::vector<std::string> retentionLines(const RetentionSettings& settings);

/// "10 GiB", "500 MiB"
std::string gibText(unsigned long long bytes);

}  // namespace ombrel
