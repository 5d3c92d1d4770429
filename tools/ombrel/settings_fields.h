// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fields of the settings record as people write them: KEY=VALUE in the words of the settings file. Pure.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "ombrel/utils.h"

namespace ombrel {

using SettingsRecord = _SYSLOG_CONF_SETTINGS_tag;

/// What a field belongs to when settings are applied.
enum class SettingsPart {
    kReceivers,
    kStorage,
    kAlong,  ///< kept along with a change of the storage settings, and no change by itself
};

/// What the value is where types count.
enum class SettingsKind { kSwitch, kNumber, kText };

struct SettingsField {
    const char* name;
    SettingsPart part;
    SettingsKind kind;
    const char* allowed;  ///< what a value may be, to stand behind "expected"
    std::string (*print)(const SettingsRecord&);
    /// False, with the record as it was, when the text is not allowed.
    bool (*parse)(std::string_view, SettingsRecord&);
};

/// All fields in the order of the record.
std::span<const SettingsField> settingsFields();
/// Null when there is no such field.
const SettingsField* findSettingsField(std::string_view name);

}  // namespace ombrel
