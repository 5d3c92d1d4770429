// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Settings from a file that somebody wrote: lines KEY="VALUE", as many as there are to change.
#pragma once

#include <string>
#include <vector>

namespace ombrel {

struct SettingsInput {
    std::vector<std::string> words;  ///< KEY=VALUE, each known and allowed
    int exitCode = 0;                ///< 0; 65 a line is wrong, 66 the file cannot be read; said then
};

SettingsInput readSettingsInput(const std::string& path);

}  // namespace ombrel
