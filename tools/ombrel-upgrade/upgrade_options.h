// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The words of the command line.
#pragma once

#include <string>
#include <vector>

namespace ombrel {

extern const char* const kUpgradeUsage;

struct UpgradeOptions {
    bool all = false;
    bool dryRun = false;
    bool removeOld = false;
    bool zip = false;
    bool json = false;
    bool help = false;
    std::vector<std::string> paths{};  ///< as they were given
};

/// Returns what is wrong with the words, empty when nothing is.
std::string readUpgradeOptions(int argc, char** argv, UpgradeOptions& options);

}  // namespace ombrel
