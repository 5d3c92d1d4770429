// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A change of the settings as people ask for it: what it makes of the record, and why it cannot be. Pure.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "tools/ombrel/settings_fields.h"

namespace ombrel {

/// Changes the record as the words KEY=VALUE say. Nothing, or what is wrong with the first wrong word.
std::optional<std::string> applyWords(std::span<char* const> words, SettingsRecord& record);

/// Why settings that are each allowed cannot be applied together: a receiver that is on could not start, or a
/// part of the change would be dropped. Nothing when they can.
std::optional<std::string> whyNotTogether(const SettingsRecord& current, const SettingsRecord& wanted);

/// Whether a field of the part differs.
bool differ(SettingsPart part, const SettingsRecord& a, const SettingsRecord& b);

/// Which part of a change from `before` to `wanted` failed, from what was found `after`: kReceivers (the storage
/// settings were then not begun) or kStorage.
SettingsPart failedPart(const SettingsRecord& before, const SettingsRecord& wanted, const SettingsRecord& after);

}  // namespace ombrel
