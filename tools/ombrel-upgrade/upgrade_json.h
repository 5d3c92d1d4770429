// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The answers of an upgrade as JSON (RFC 8259), an object a line. Pure.
#pragma once

#include <string>
#include <vector>

#include "tools/ombrel-upgrade/upgrade_plan.h"
#include "tools/ombrel-upgrade/upgrade_watch.h"

namespace ombrel {

/// What became of one file. `oldFile`: where the old one is now, empty when it is gone or was left as it was.
std::string fileJson(const std::string& path, const UpgradeOutcome& outcome, double seconds,
                     const std::string& oldFile);
/// What --dry-run shows: a line for each file and each file system.
std::string planJson(const std::vector<FoundDatabase>& files, const std::vector<VolumeNeed>& volumes,
                     bool removeOld, const ArchivePath& archivePath, const SpaceCheck& isEnough,
                     const FreeBytes& freeBytes);
/// `path`: the file that it is about, empty when it is about none.
std::string noteJson(const std::string& text, const std::string& path);
std::string summaryJson(std::size_t upgraded, std::size_t failed, std::size_t left);

}  // namespace ombrel
