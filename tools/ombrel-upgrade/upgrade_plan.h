// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What an upgrade takes, before it is begun, and how that is told. Pure but for what is asked for by a function.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/ombrel-upgrade/database_finder.h"

namespace ombrel {

/// Of one file, in bytes, beside what an earlier run has already made.
struct SpaceNeed {
    unsigned long long atWork = 0;  ///< while it is converted, but for a journal
    unsigned long long kept = 0;    ///< of that, what stays
    unsigned long long freed = 0;   ///< with the old file, when that goes
};
SpaceNeed spaceNeedOf(const FoundDatabase& file);

/// What a file system must have free for its part of the files, one after the other.
struct VolumeNeed {
    dev_t device = 0;
    std::string folder;             ///< the first one on it that has files
    unsigned long long needed = 0;  ///< with a journal and the reserve
    unsigned long long neededRemovingOld = 0;
};
std::vector<VolumeNeed> volumeNeeds(const std::vector<FoundDatabase>& files);

/// Whether the file system of a folder has so many bytes free.
using SpaceCheck = std::function<bool(const std::string& folder, unsigned long long bytes)>;
/// How many it has; for the texts.
using FreeBytes = std::function<unsigned long long(const std::string& folder)>;

/// A line for each file system that has too little.
std::vector<std::string> spaceProblems(const std::vector<VolumeNeed>& volumes, bool removeOld,
                                       const SpaceCheck& isEnough, const FreeBytes& freeBytes);

/// The name that a set-aside database would get.
using ArchivePath = std::function<std::string(const std::string& path)>;
/// The files and what becomes of them, then the file systems: what --dry-run shows.
std::string planText(const std::vector<FoundDatabase>& files, const std::vector<VolumeNeed>& volumes,
                     bool removeOld, const ArchivePath& archivePath, const FreeBytes& freeBytes);

}  // namespace ombrel
