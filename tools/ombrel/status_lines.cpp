// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/text_escape.h"
#include "tools/ombrel/status_show.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

template <typename Number>
std::string numberText(const std::optional<Number>& number) {
    return number ? std::to_string(*number) : "?";
}

std::string stateText(const std::optional<bool>& running, bool isWanted) {
    if (!running) return "?";
    return *running ? "running" : isWanted ? "down" : "off";
}

std::string line(std::initializer_list<std::string> cells) {
    std::string text;
    for (const std::string& cell : cells)
        text += (text.empty() ? "" : "\t") + (cell.empty() ? "-" : escapeForLine(cell));
    return text + '\n';
}

std::string receiverLine(const ReceiverStatus& receiver) {
    const bool isRule = receiver.kind == ReceiverStatus::Kind::kRule;
    const bool counts = receiver.running.value_or(true);
    return line(
        {isRule ? "rule" : "receiver", receiverName(receiver), stateText(receiver.running, receiver.isWanted),
         receiver.port ? std::to_string(*receiver.port) : "", receiver.transport,
         receiver.port ? (receiver.tls ? "tls" : "plain") : "", counts ? numberText(receiver.messages) : "",
         receiver.perSecond ? numberText(receiver.perSecond) : "", counts ? numberText(lostOf(receiver)) : ""});
}

std::string databaseLine(const DatabaseStatus& database) {
    const std::string more = database.isMoreThan ? ">" : "";
    return line({"database", database.device, database.path, numberText(database.rows),
                 std::to_string(database.bytes), database.firstDay, database.lastDay,
                 more + numberText(database.lastMinute), dueText(database)});
}

}  // namespace

std::string statusLines(const StatusReport& report) {
    std::string text = line({"time", localTimeText(report.time)});
    for (const ReceiverStatus& receiver : report.receivers)
        text += receiverLine(receiver);
    for (const JobStatus& job : report.jobs)
        text += line({"job", job.name, stateText(job.running, job.isWanted)});
    for (const DatabaseStatus& database : report.databases)
        text += databaseLine(database);
    if (const auto& archives = report.archives) {
        text += line({"archives", archives->folder, std::to_string(archives->count),
                      std::to_string(archives->bytes), archives->oldestDay, archives->newestDay});
    }
    if (const auto& volume = report.volume)
        text += line({"volume", std::to_string(volume->freeBytes), std::to_string(volume->totalBytes)});
    if (const auto& last = report.lastArchived)
        text += line({"last-archived", *last == 0 ? "never" : localTimeText(*last)});
    for (const EventRecord& event : report.events.value_or(std::vector<EventRecord>()))
        text += line({"event", localTimeText(event.time), event.line.event, eventText(event)});
    for (const std::string& note : report.notes)
        text += line({"note", note});
    return text;
}

}  // namespace ombrel
