// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The archives of a folder with all that belongs to them, and their removal. Nothing is done through a symbolic
// link: folders are opened once, and what is removed is removed from the open folder.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

#include "linux/common/fd.h"
#include "tools/ombrel/retention_policy.h"

namespace ombrel {

struct ArchiveFiles {
    struct File {
        std::string name;
        struct stat status {};
    };
    RetainedArchive facts;
    std::shared_ptr<const Fd> folder;
    std::string folderPath;
    std::vector<File> files;  ///< what goes with it first, the archive itself last
};

struct ArchiveScan {
    std::vector<ArchiveFiles> archives;
    std::vector<std::string> notes;  ///< folders that could not be read
};

/// The archive folder and its sub-folders (one level; no hidden ones, and not "@tmp"). An archive that has changed
/// within ten minutes of `now`, or that is being converted, is busy.
ArchiveScan scanArchives(const std::string& folder, long long now);

/// Removes the files of an archive, that itself last, so that a removal that is broken off is gone on with.
/// Nothing when one of them is not any more what was found. Empty, or what is wrong.
std::string removeArchive(const ArchiveFiles& archive);

}  // namespace ombrel
