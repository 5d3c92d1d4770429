// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/status_show.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

const char* kindText(ReceiverStatus::Kind kind) {
    switch (kind) {
        case ReceiverStatus::Kind::kRfc3164:
            return "rfc3164";
        case ReceiverStatus::Kind::kRfc5424:
            return "rfc5424";
        case ReceiverStatus::Kind::kLocal:
            return "local";
        case ReceiverStatus::Kind::kRules:
            return "rules";
        case ReceiverStatus::Kind::kRule:
            return "rule";
    }
    return "";
}

std::optional<std::string> orNull(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional(text);
}

void write(JsonWriter& json, const ReceiverStatus& receiver) {
    json.beginObject()
        .member("kind", kindText(receiver.kind))
        .member("name", orNull(receiver.name))
        .member("wanted", receiver.isWanted)
        .member("running", receiver.running)
        .member("port", receiver.port)
        .member("transport", orNull(receiver.transport))
        .member("tls", receiver.port ? std::optional(receiver.tls) : std::nullopt)
        .member("format", orNull(receiver.format))
        .member("messages", receiver.messages)
        .member("messages_per_second", receiver.perSecond)
        .member("lost_datagrams", receiver.lostDatagrams)
        .member("lost_messages", receiver.lostMessages)
        .endObject();
}

void write(JsonWriter& json, const RuleProgress& progress) {
    const bool isAge = progress.rule == ArchiveRule::kAge;
    const std::string unit = isAge ? "_seconds" : progress.rule == ArchiveRule::kSize ? "_bytes" : "_rows";
    json.beginObject()
        .member("rule", ruleName(progress.rule))
        .member("limit" + unit, progress.limit)
        .member("reached" + unit, progress.reached)
        .endObject();
}

void write(JsonWriter& json, const DatabaseStatus& database) {
    json.beginObject()
        .member("path", database.path)
        .member("device", database.device)
        .member("rows", database.rows)
        .member("size_bytes", database.bytes)
        .member("first_day", orNull(database.firstDay))
        .member("last_day", orNull(database.lastDay))
        .member("messages_last_minute", database.lastMinute)
        .member("messages_last_minute_is_more", database.isMoreThan)
        .member("due", database.due != ArchiveRule::kNone)
        .member("rule", orNull(ruleName(database.due)))
        .key("rules")
        .beginArray();
    for (const RuleProgress& progress : database.rules)
        write(json, progress);
    json.endArray().endObject();
}

void writeArchives(JsonWriter& json, const StatusReport& report) {
    json.key("archives");
    if (const auto& archives = report.archives) {
        json.beginObject()
            .member("folder", archives->folder)
            .member("count", archives->count)
            .member("size_bytes", archives->bytes)
            .member("oldest_day", orNull(archives->oldestDay))
            .member("newest_day", orNull(archives->newestDay))
            .endObject();
    } else {
        json.null();
    }
    json.key("volume");
    if (const auto& volume = report.volume) {
        json.beginObject()
            .member("free_bytes", volume->freeBytes)
            .member("total_bytes", volume->totalBytes)
            .endObject();
    } else {
        json.null();
    }
}

template <typename List, typename Writer>
void writeList(JsonWriter& json, const char* name, const List& list, Writer writer) {
    json.key(name).beginArray();
    for (const auto& one : list)
        writer(one);
    json.endArray();
}

}  // namespace

std::string statusJson(const StatusReport& report) {
    JsonWriter json;
    json.beginObject().member("time", timeJson(report.time));
    const auto writeOne = [&](const auto& one) { write(json, one); };
    writeList(json, "receivers", report.receivers, writeOne);
    writeList(json, "jobs", report.jobs, [&](const JobStatus& job) {
        json.beginObject()
            .member("name", job.name)
            .member("wanted", job.isWanted)
            .member("running", job.running)
            .endObject();
    });
    writeList(json, "databases", report.databases, writeOne);
    const auto minute = lastMinuteOf(report);
    json.member("messages_last_minute", minute ? std::optional(minute->messages) : std::nullopt);
    json.member("messages_last_minute_is_more", minute && minute->isMoreThan);
    writeArchives(json, report);
    const auto& last = report.lastArchived;
    json.member("last_archived", last.value_or(0) != 0 ? std::optional(timeJson(*last)) : std::nullopt);
    if (report.events) {
        writeList(json, "events", *report.events, [&](const EventRecord& event) { writeEvent(json, event); });
    } else {
        json.key("events").null();
    }
    writeList(json, "notes", report.notes, [&](const std::string& note) { json.text(note); });
    json.endObject();
    return json.takeLine();
}

}  // namespace ombrel
