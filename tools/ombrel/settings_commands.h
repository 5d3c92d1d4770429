// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The verbs of `ombrel settings`. Each returns the exit code.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel/context.h"

namespace ombrel {

int showSettings(const Context& context);
int getSettings(const Context& context, const std::vector<std::string>& keys);
/// What applying a file would change.
int diffSettings(const Context& context, const std::string& file);
/// Everything that is wrong with the settings as they stand.
int checkSettingsAsTheyStand(const Context& context);

struct ApplyOptions {
    bool dryRun = false;
    bool force = false;  ///< whatever the machine is found to be
};
/// Words KEY=VALUE.
int setSettings(const Context& context, const std::vector<std::string>& words, const ApplyOptions& options);
int applySettingsFile(const Context& context, const std::string& file, const ApplyOptions& options);

}  // namespace ombrel
