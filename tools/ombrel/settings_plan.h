// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What applying settings will do, in the order in which it is done. Reads, and changes nothing.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/settings_change.h"

namespace ombrel {

struct PlannedStep {
    std::string action;  ///< stop, start, restart, withdraw, declare, reload, write, archive
    std::string name;    ///< of the job, port, file or database
    friend bool operator==(const PlannedStep&, const PlannedStep&) = default;
};

struct PlannedArchive {
    std::string path;
    long long rows = 0;
};

struct SettingsPlan {
    std::vector<SettingsChange> changes;
    std::vector<PlannedStep> steps;
    std::vector<PlannedArchive> archives;
    std::vector<std::string> closed;  ///< "514/udp"
    std::vector<std::string> opened;
};

SettingsPlan planOf(const SettingsRecord& current, const SettingsRecord& wanted);

/// A line each.
std::string planText(const SettingsPlan& plan);
/// Members of an object.
void writePlan(JsonWriter& json, const SettingsPlan& plan);

}  // namespace ombrel
