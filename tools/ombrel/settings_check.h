// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Whether this machine can do what settings say. What is named wrong keeps a receiver from starting or loses what
// it receives; what is only unusual is a warning.
#pragma once

#include "tools/ombrel/finding.h"
#include "tools/ombrel/settings_change.h"

namespace ombrel {

/// All settings as they stand.
Findings checkSettings(const SettingsRecord& record);

/// What a change from `current` to `wanted` touches, and nothing else.
Findings checkChange(const SettingsRecord& current, const SettingsRecord& wanted);

// The single questions.
Finding checkPort(const ReceiverSettings& receiver);
Finding checkTls(const SettingsRecord& record);
/// It has to have room for the working databases as they are now.
Finding checkArchiveFolder(const std::string& folder);
Finding checkShare(const std::string& name);

/// Why logs cannot be kept on a file system that holds a path; `isUnknown` when that cannot be told. Empty: they
/// can.
struct PlaceFault {
    std::string what;
    bool isUnknown = false;
};
PlaceFault whyNotLocal(const std::string& path);
/// Why a share cannot hold the database; empty when it can.
std::string whyNoShare(const std::string& name);

}  // namespace ombrel
