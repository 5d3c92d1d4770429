// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A file that is held open, so that it can be found again whatever it is called later, and read even when it has
// no name any more.
#pragma once

#include <optional>
#include <string>

#include "linux/common/fd.h"
#include "tools/ombrel/log_reader.h"

namespace ombrel {

/// The path without symbolic links in its folders, which need not have that file (any more); as it is where the
/// folder cannot be opened.
std::string withoutLinks(const std::string& path);

/// A file that goes with this object.
class TemporaryCopy {
public:
    TemporaryCopy() = default;
    TemporaryCopy(const TemporaryCopy&) = delete;
    TemporaryCopy& operator=(const TemporaryCopy&) = delete;
    ~TemporaryCopy();

    /// Copies the whole file into the folder of temporary files. False with errno set.
    bool copy(int file);
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
};

class HeldFile {
public:
    /// False with errno set.
    bool open(const std::string& path);

    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] const LogReader::Identity& identity() const { return identity_; }
    /// Whether the path leads to this file.
    [[nodiscard]] bool isAt(const std::string& path) const;
    struct Name {
        std::string path;        ///< where the file is, or was last
        bool isRemoved = false;  ///< it has no name any more
    };
    [[nodiscard]] Name name() const;

private:
    Fd fd_;
    LogReader::Identity identity_;
};

}  // namespace ombrel
