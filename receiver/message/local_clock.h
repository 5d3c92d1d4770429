// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The zone's clock that understands the times of senders. One object belongs to one thread.
#pragma once

#include <cstdint>
#include <optional>

#include "linux/common/zone_clock.h"
#include "receiver/message/message_parser.h"

namespace ombrel {

class LocalClock : public ZoneClock {
public:
    /// The sender's time in seconds since the epoch. What it leaves out is chosen so that it lies nearest to
    /// `reference`. An hour that occurs twice when clocks go back is taken with the offset of `reference`.
    std::int64_t resolve(const SenderTime& time, std::int64_t reference);

private:
    std::int64_t resolveIn(const SenderTime& time, int year, std::int64_t reference);
};

/// A row's own time: the sender's where it lies within a day of the receive time, otherwise the receive
/// time, so that a device with a wrong clock neither misnames an archive nor makes it due.
std::int64_t ownTime(std::optional<std::int64_t> sent, std::int64_t received) noexcept;

}  // namespace ombrel
