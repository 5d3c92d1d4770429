// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/file_lines.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ombrel {

// False when nothing more can be read.
bool FileLines::fill() {
    if (atEnd_) return false;
    if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    ssize_t got = -1;
    do {
        got = ::read(fd_, buffer_.data() + end_, buffer_.size() - end_);
    } while (got < 0 && errno == EINTR);
    if (got < 0) error_ = errno;
    atEnd_ = got <= 0;
    if (got > 0) {
        end_ += static_cast<size_t>(got);
        bytesRead_ += static_cast<size_t>(got);
    }
    return got > 0;
}

bool FileLines::next(std::string_view& line) {
    size_t searched = 0;
    for (;;) {
        const std::string_view ahead(buffer_.data() + begin_, end_ - begin_);
        const size_t found = ahead.find('\n', searched);
        if (found != std::string_view::npos && found <= kMaxLine) {
            line = ahead.substr(0, found);
            begin_ += found + 1;
            insideLongLine_ = false;
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            return true;
        }
        if (ahead.size() > kMaxLine) {
            line = ahead.substr(0, kMaxLine);
            begin_ += kMaxLine;
            if (!insideLongLine_) ++splitLines_;
            insideLongLine_ = true;
            return true;
        }
        searched = ahead.size();
        if (fill()) continue;
        // A last line without an end counts; after a failed read it may be half of one.
        if (ahead.empty() || error_ != 0) return false;
        line = std::string_view(buffer_.data() + begin_, end_ - begin_);
        begin_ = end_;
        return true;
    }
}

}  // namespace ombrel
