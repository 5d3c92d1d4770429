// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/flush_policy.h"

#include <algorithm>

namespace ombrel {

void FlushPolicy::configure(long long rows, std::chrono::seconds timeout) noexcept {
    mostRows_ = static_cast<size_t>(std::max(rows, 1LL));
    timeout_ = std::clamp(timeout, std::chrono::seconds(0), kLongestFlushWait);
}

void FlushPolicy::add(size_t rows, bool full, Clock::time_point now) noexcept {
    if (!since_) since_ = now;
    rows_ += rows;
    full_ = full_ || full;
}

std::optional<FlushPolicy::Clock::time_point> FlushPolicy::deadline() const noexcept {
    if (!since_) return std::nullopt;
    return full_ || rows_ >= mostRows_ ? *since_ : *since_ + timeout_;
}

bool FlushPolicy::isDue(Clock::time_point now) const noexcept {
    const auto when = deadline();
    return when && *when <= now;
}

void FlushPolicy::clear() noexcept {
    rows_ = 0;
    full_ = false;
    since_.reset();
}

}  // namespace ombrel
