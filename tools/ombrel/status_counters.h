// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a syslog-ng counts of itself, read. Pure.
#pragma once

#include <optional>
#include <string_view>

namespace ombrel {

struct ReceiverCounters {
    unsigned long long received = 0;  ///< messages since it was started
    unsigned long long dropped = 0;   ///< of them, those that a queue had no room for
};

/// Of an answer to STATS, a line "SOURCE;ID;INSTANCE;STATE;TYPE;NUMBER" for each counter; nothing when the one
/// of all received messages is not among them.
std::optional<ReceiverCounters> readCounters(std::string_view stats);

}  // namespace ombrel
