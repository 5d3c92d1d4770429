// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the log writer takes from the settings file, and the watch on that file.
#pragma once

#include <optional>
#include <string>

#include "linux/common/fd.h"

namespace ombrel {

struct WriterSettings {
    std::string archiveFolder;
    bool byDevice = false;
    int flushRows = 1;
    int flushSeconds = 0;
    friend bool operator==(const WriterSettings&, const WriterSettings&) = default;
};

/// Nothing when a key is missing or a value makes no sense; `error` then says which file and what to do.
std::optional<WriterSettings> readWriterSettings(const std::string& path, std::string& error);

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
