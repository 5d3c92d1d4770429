// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The settings as they stand, for every command that needs them.
#pragma once

#include <optional>
#include <string>

#include "tools/ombrel/settings_fields.h"

namespace ombrel {

struct SettingsRead {
    std::optional<SettingsRecord> record;
    int exitCode = 0;       ///< without a record: 77 no right to read, 78 anything else
    std::string complaint;  ///< likewise: which file cannot be read and why, or which key it lacks
};

/// Reads all settings, or complains.
SettingsRead readSettings();
/// The same without a word.
SettingsRead tryReadSettings();

}  // namespace ombrel
