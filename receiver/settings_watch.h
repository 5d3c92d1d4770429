// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Tells those who follow the settings file while they run.
#pragma once

#include <string>

#include "linux/common/fd.h"

namespace ombrel {

/// Becomes readable when the file may have changed: written in place, or replaced by rename. Where the file
/// is a symbolic link, its target is watched as well.
class SettingsWatch {
public:
    /// False, with errno set, when the folder cannot be watched.
    bool start(const std::string& path);
    [[nodiscard]] int fd() const noexcept { return inotify_.get(); }
    /// Reads what is there; whether it concerns the file.
    bool changed();

private:
    bool watchFolderOf(const std::string& path);

    std::string path_;
    std::string name_;
    std::string targetName_;
    Fd inotify_;
};

}  // namespace ombrel
