// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The events of this machine as the event file has them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/vesksyslog/event_line.h"
#include "tools/ombrel/json_writer.h"

namespace ombrel {

struct EventRecord {
    long long time = 0;  ///< seconds since the epoch
    EventLine line;
};

/// Nothing when the line is damaged: no event, or without a time.
std::optional<EventRecord> readEventRecord(std::string_view line);

/// Whether it tells that something went wrong.
bool isFailure(const EventRecord& record);

/// What a person reads behind its name: its text, and what else it holds.
std::string eventText(const EventRecord& record);

/// One object with all that the line holds.
void writeEvent(JsonWriter& json, const EventRecord& record);

}  // namespace ombrel
