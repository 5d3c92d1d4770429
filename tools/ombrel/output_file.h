// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A file that is there whole or not at all: it is written beside its place, and put there when it is on the disk.
#pragma once

#include <string>
#include <string_view>

#include "linux/common/fd.h"

namespace ombrel {

class OutputFile {
public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    /// Takes away what was not put in its place.
    ~OutputFile();

    /// Nothing, or what is wrong: "PATH: WHY". `replace`: what stands there may be replaced, if it is a regular
    /// file.
    std::string open(const std::string& path, bool replace);
    /// Standard output: each write goes there at once.
    void openStandardOutput();

    /// False with errno set.
    bool write(std::string_view bytes);
    /// Writes what a file holds and removes that file. False with errno set.
    bool takeFile(const std::string& path);
    /// A name beside the file for takeFile(); of standard output in the folder of temporary files.
    [[nodiscard]] std::string nameBeside() const;
    [[nodiscard]] unsigned long long bytes() const { return bytes_; }

    /// Syncs the file and puts it in its place. Nothing, or what is wrong.
    std::string commit();

private:
    std::string path_;
    std::string temporary_;
    Fd fd_;
    bool isStandardOutput_ = false;
    bool replace_ = false;
    unsigned long long bytes_ = 0;
};

}  // namespace ombrel
