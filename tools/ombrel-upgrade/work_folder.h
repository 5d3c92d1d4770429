// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Where new files are made until they take the place of the old ones: a folder of this program alone, in the
// scratch folder of the old file's volume, so that a rename is all that is left to do in the end.
#pragma once

#include <string>
#include <utility>

#include "linux/common/fd.h"

namespace ombrel {

/// The work folder for what becomes of `path`; always on the same file system. Empty when none can be told.
std::string workFolderFor(const std::string& path);

class WorkFolder {
public:
    WorkFolder() = default;
    /// Neither made nor locked: to ask where something would be.
    explicit WorkFolder(std::string folder) : path_(std::move(folder)) {}
    WorkFolder(WorkFolder&&) = default;
    WorkFolder& operator=(WorkFolder&&) = default;
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    /// Takes the folder away when nothing is left in it.
    ~WorkFolder();

    /// Makes the folder where it is missing, for its owner alone, and locks it: two programs that convert the
    /// same file would spoil each other's work. Returns what is wrong, empty when nothing is.
    std::string open(const std::string& folder);
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// The name for what becomes of the file at `path`: the same in each run, also when the file was renamed
    /// meanwhile, and never that for another file. Empty, with errno set, when there is no such file.
    [[nodiscard]] std::string placeFor(const std::string& path, const char* extension) const;
    /// The size of all files with such names, whatever their extensions.
    [[nodiscard]] unsigned long long bytesFor(const std::string& path) const;

private:
    std::string path_;
    Fd lock_;
};

}  // namespace ombrel
