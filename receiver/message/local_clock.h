// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Between seconds since the epoch and the local days and times of this machine. The zone's rules are asked
// once for each quarter of an hour (no zone of today changes its offset in between) and remembered. One
// object belongs to one thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "linux/common/day_text.h"
#include "receiver/message/message_parser.h"

namespace ombrel {

class LocalClock {
public:
    /// Forgets what is remembered and looks whether the machine's zone has changed. Once a transaction.
    void refresh();

    struct Stamp {
        std::string_view day;  ///< local day, YYYY-MM-DD; valid until the next call
        int utcOffset = 0;     ///< seconds east of Greenwich
    };
    Stamp stamp(std::int64_t seconds);

    /// The sender's time in seconds since the epoch. What it leaves out is chosen so that it lies nearest to
    /// `reference`. An hour that occurs twice when clocks go back is taken with the offset of `reference`.
    std::int64_t resolve(const SenderTime& time, std::int64_t reference);

private:
    struct Block {
        std::int64_t number = INT64_MIN;  // quarter of an hour since the epoch
        int offset = 0;                   // seconds east of Greenwich
    };
    int offsetAt(std::int64_t seconds);
    std::int64_t resolveIn(const SenderTime& time, int year, std::int64_t reference);

    std::array<Block, 64> blocks_{};
    DayText day_;
};

/// A row's own time: the sender's where it lies within a day of the receive time, otherwise the receive
/// time, so that a device with a wrong clock neither misnames an archive nor makes it due.
std::int64_t ownTime(std::optional<std::int64_t> sent, std::int64_t received) noexcept;

}  // namespace ombrel
