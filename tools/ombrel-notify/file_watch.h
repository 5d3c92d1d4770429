// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Tells when files may have changed. What is watched are their folders, since a file may be replaced or not be
// there yet; where a file is a symbolic link, that of its target as well.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "linux/common/fd.h"

namespace ombrel {

class FileWatch {
public:
    /// False with errno set.
    bool start();
    /// `events` of inotify(7).
    void add(const std::string& path, std::uint32_t events);
    /// To be called now and then: a folder that has been made or replaced since is watched from then on.
    /// False with errno set when one of them cannot be watched.
    bool refresh();

    [[nodiscard]] int fd() const { return inotify_.get(); }
    /// Reads what is there.
    /// @return a bit for each file that may have changed, in the order in which they were added
    unsigned changed();

private:
    struct File {
        std::string path;
        std::uint32_t events = 0;
    };
    struct Entry {
        unsigned file = 0;  // its place in the order
        std::string folder;
        std::string name;
        int watch = -1;
    };
    bool watchEntry(unsigned file, const std::string& path, std::vector<Entry>& entries);
    [[nodiscard]] unsigned concerned(int watch, std::string_view name) const;

    Fd inotify_;
    std::vector<File> files_;
    std::vector<Entry> entries_;
};

}  // namespace ombrel
