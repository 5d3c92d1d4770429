// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// When the waiting rows are committed: after so many rows or so much time, whichever comes first. Pure.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

namespace ombrel {

/// A receiver keeps its next batch back until the one before it is committed. A longer wait would only make
/// its queue overflow when many messages come after few.
constexpr std::chrono::seconds kLongestFlushWait{5};

class FlushPolicy {
public:
    using Clock = std::chrono::steady_clock;

    /// `rows` below 1 counts as 1, `timeout` is kept between 0 and kLongestFlushWait.
    void configure(long long rows, std::chrono::seconds timeout) noexcept;
    /// `full`: more rows are queued behind these and come only after the commit, so there is nothing to wait for.
    void add(size_t rows, bool full, Clock::time_point now) noexcept;
    /// When the waiting rows are to be committed; nothing when none wait.
    [[nodiscard]] std::optional<Clock::time_point> deadline() const noexcept;
    [[nodiscard]] bool isDue(Clock::time_point now) const noexcept;
    void clear() noexcept;

private:
    size_t mostRows_ = 1;
    std::chrono::seconds timeout_{0};
    size_t rows_ = 0;
    bool full_ = false;
    std::optional<Clock::time_point> since_;
};

}  // namespace ombrel
