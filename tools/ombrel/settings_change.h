// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A change of the settings as people ask for it: what it makes of the record, and why it cannot be. Pure.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/settings_fields.h"

namespace ombrel {

/// Changes the record as the words KEY=VALUE say. Nothing, or what is wrong with the first wrong word.
std::optional<std::string> applyWords(const std::vector<std::string>& words, SettingsRecord& record);

/// One of the two receivers that have settings of their own, as a record has it.
struct ReceiverSettings {
    bool isOn = false;
    bool isTls = false;
    bool isUdp = false;
    int port = 0;
    const char* job;      ///< "pkg-Ombrel-bsd"
    const char* section;  ///< under which its port is declared
    const char* portKey;
    const char* tlsKey;
    const char* transportKey;
};
/// BSD, then IETF.
std::array<ReceiverSettings, 2> receiversOf(const SettingsRecord& record);
/// "514/udp"
std::string portText(const ReceiverSettings& receiver);

/// What keeps receivers that are on from starting, as far as the settings themselves tell.
struct SettingsFaultWords {
    std::string key;
    std::string what;
};
std::vector<SettingsFaultWords> receiverFaults(const SettingsRecord& record);

/// Why settings that are each allowed cannot be applied together: a receiver that is on could not start, or a
/// part of the change would be dropped. Nothing when they can.
std::optional<std::string> whyNotTogether(const SettingsRecord& current, const SettingsRecord& wanted);

/// Whether a field of the part differs.
bool differ(SettingsPart part, const SettingsRecord& a, const SettingsRecord& b);

struct SettingsChange {
    const SettingsField* field;
    std::string before;
    std::string after;
};
std::vector<SettingsChange> changesOf(const SettingsRecord& before, const SettingsRecord& after);

/// KEY: "OLD" -> "NEW", a line each, safe for a terminal.
std::string changesText(const std::vector<SettingsChange>& changes);
/// The value of a field in its own type.
void writeValue(JsonWriter& json, const SettingsField& field, const std::string& printed);
/// A member "changes": key, old and new of each.
void writeChanges(JsonWriter& json, const std::vector<SettingsChange>& changes);

/// Which part of a change from `before` to `wanted` failed, from what was found `after`: kReceivers (the storage
/// settings were then not begun) or kStorage.
SettingsPart failedPart(const SettingsRecord& before, const SettingsRecord& wanted, const SettingsRecord& after);

}  // namespace ombrel
