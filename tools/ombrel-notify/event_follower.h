// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reads the event file as it grows, and follows it when it is turned away to "<path>.1".
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "linux/common/fd.h"

namespace ombrel {

/// How far the file has been read, to be kept over a restart.
struct EventPosition {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;  ///< 0: there was no file yet; the next one is read from its beginning
    std::uint64_t offset = 0;
    std::uint64_t head = 0;  ///< a sum of the first bytes: an inode may come to belong to another file
    friend bool operator==(const EventPosition&, const EventPosition&) = default;
};

class EventFollower {
public:
    using Sink = std::function<void(std::string_view line)>;

    explicit EventFollower(std::string path) : path_(std::move(path)) {}

    /// Goes on at a place; without one at the end of the file that is there. Of a file that is not found any more
    /// under either name the rest is lost, and the one of the name is read from its beginning.
    void start(const std::optional<EventPosition>& position);
    /// Hands over every whole line since the last call. A line without its end is left for the next call; one
    /// of more than kLongestEventLine bytes is read over.
    /// @return 0, or the errno why the file cannot be read; one that is not there is no failure
    int read(const Sink& sink);
    [[nodiscard]] EventPosition position() const;

private:
    int open(const std::string& path, Fd& file) const;
    bool resumeIn(const std::string& path, const EventPosition& position);
    int drain(const Sink& sink);
    std::size_t takeLines(std::string_view bytes, const Sink& sink);

    std::string path_;
    Fd file_;
    std::uint64_t offset_ = 0;
    bool isInside_ = false;  // a line that is too long
};

}  // namespace ombrel
