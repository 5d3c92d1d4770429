// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/event_records.h"

#include <algorithm>
#include <set>

#include "linux/vesksyslog/event_log.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

std::optional<EventRecord> readEventRecord(std::string_view line) {
    auto event = readEventLine(line);
    if (!event) return std::nullopt;
    const auto time = secondsOfEvent(event->time);
    if (!time) return std::nullopt;
    return EventRecord{*time, std::move(*event)};
}

bool isFailure(const EventRecord& record) {
    return record.line.event == kJobDied.name || record.line.event.ends_with("_failed");
}

std::string eventText(const EventRecord& record) {
    std::string text = record.line.text;
    for (const auto& [name, value] : record.line.more) {
        const auto* number = std::get_if<long long>(&value);
        const std::string said = number != nullptr ? std::to_string(*number) : std::get<std::string>(value);
        if (said == record.line.text) continue;  // the job of job_died
        text += (text.empty() ? "" : " ") + name + "=" + said;
    }
    return text;
}

void writeEvent(JsonWriter& json, const EventRecord& record) {
    json.beginObject()
        .member("time", timeJson(record.time))
        .member("event", record.line.event)
        .member("text", record.line.text)
        .member("failure", isFailure(record));
    std::set<std::string_view> written = {"time", "event", "text", "failure"};
    for (const auto& [name, value] : record.line.more) {
        if (!written.insert(name).second) continue;
        if (const auto* number = std::get_if<long long>(&value)) {
            json.member(name, *number);
        } else {
            json.member(name, std::get<std::string>(value));
        }
    }
    json.endObject();
}

}  // namespace ombrel
