// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The lines of a file of any content, in bounded memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "linux/common/fd.h"

namespace ombrel {

class FileLines {
public:
    /// A longer line is given out in pieces of this size.
    static constexpr size_t kMaxLine = 1U << 20;

    /// `fd` stays the caller's.
    explicit FileLines(int fd) : fd_(fd), buffer_(2 * kMaxLine) {}

    /// The next line without its LF or CR LF, valid until the next call. False at the end and on a failure.
    bool next(std::string_view& line);
    /// errno of the read that failed, 0 without one.
    [[nodiscard]] int error() const noexcept { return error_; }
    [[nodiscard]] unsigned long long bytesRead() const noexcept { return bytesRead_; }
    [[nodiscard]] size_t splitLines() const noexcept { return splitLines_; }

private:
    bool fill();

    int fd_;
    std::vector<char> buffer_;
    size_t begin_ = 0;
    size_t end_ = 0;
    bool atEnd_ = false;
    bool insideLongLine_ = false;
    int error_ = 0;
    unsigned long long bytesRead_ = 0;
    size_t splitLines_ = 0;
};

}  // namespace ombrel
