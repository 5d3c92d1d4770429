// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What lies in a folder, asked of the machine.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ombrel {

struct FolderEntry {
    std::string name;
    bool isFolder = false;
    unsigned long long bytes = 0;
    long long changed = 0;  ///< seconds since the epoch
};

/// Regular files and folders; no hidden ones, no symbolic links. Nothing, with errno set, when it cannot be read.
std::optional<std::vector<FolderEntry>> listFolder(const std::string& path);

/// A regular file, or what a symbolic link leads to. Nothing, with errno set, when there is none.
std::optional<FolderEntry> fileEntry(const std::string& path);

}  // namespace ombrel
