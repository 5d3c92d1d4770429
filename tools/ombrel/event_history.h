// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the event file holds, read from its end: the last few events are found at the same cost whatever came
// before.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel-notify/event_follower.h"
#include "tools/ombrel/event_records.h"

namespace ombrel {

struct EventQuery {
    std::size_t most = 0;  ///< the last so many; 0 all
    std::optional<long long> since;
    std::string event;  ///< of this name alone
    bool failuresOnly = false;
    [[nodiscard]] bool wants(const EventRecord& record) const;
};

struct EventHistory {
    std::vector<EventRecord> records;  ///< oldest first
    unsigned long long damaged = 0;    ///< lines that were passed over
    int error = 0;                     ///< why a file cannot be read; one that is not there is no failure
};

/// Reads the file and the one that was turned away before it, "<path>.1".
/// @param end  what is written behind this place is left for whoever follows from there
EventHistory readEventHistory(const std::string& path, const EventQuery& query,
                              const std::optional<EventPosition>& end = std::nullopt);

}  // namespace ombrel
