// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel events`: what has happened to the service on this machine.
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/event_history.h"
#include "tools/ombrel/event_stream.h"
#include "tools/ombrel/machine_places.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

constexpr long long kUsualNumber = 20;
constexpr std::size_t kNameColumns = 16;

struct EventWords {
    bool follow = false;
    long long most = 0;  // 0: not said
    std::string since;
    std::string event;
    bool failures = false;
};

std::string row(const Terminal& terminal, const std::string& time, const std::string& name, std::string text,
                Colour colour) {
    if (!terminal.isTerminal) return time + '\t' + name + '\t' + text + '\n';
    std::string line = time + std::string(21 - std::min<std::size_t>(time.size(), 20), ' ') + name +
                       std::string(name.size() < kNameColumns ? kNameColumns - name.size() : 0, ' ') + "  ";
    const auto columns = static_cast<std::size_t>(terminal.columns);
    if (columns > line.size() + 10) text = cutToColumns(text, columns - line.size());
    return painted(terminal, colour, line + text) + '\n';
}

/// Prints events as they come.
class EventPrinter {
public:
    explicit EventPrinter(const Context& context) : context_(context) {}

    bool print(const EventRecord& record) {
        if (context_.json) {
            JsonWriter json;
            writeEvent(json, record);
            return say(json.takeLine());
        }
        const Colour colour = isFailure(record) ? Colour::kRed : Colour::kPlain;
        const bool isFirst = !std::exchange(hasHead_, true);
        if (isFirst && context_.out.isTerminal && !say(row(context_.out, "TIME", "EVENT", "TEXT", Colour::kBold)))
            return false;
        return say(row(context_.out, localTimeText(record.time), escapeForLine(record.line.event),
                       escapeForLine(eventText(record)), colour));
    }
    void tellDamaged(unsigned long long lines) {
        if (lines == 0 || std::exchange(hasToldDamaged_, true)) return;
        (void)complain(0, "damaged lines in " + eventFile() + " are passed over");
    }

private:
    const Context& context_;
    bool hasHead_ = false;
    bool hasToldDamaged_ = false;
};

int complainOfFile(int error) {
    const std::string what = eventFile() + " cannot be read: " + std::strerror(error);
    return error == EACCES ? complain(EX_NOPERM, what + "; root can") : complain(EX_NOINPUT, what);
}

int follow(EventFollower& follower, const EventQuery& query, EventPrinter& printer) {
    bool written = true;
    const int error = followEvents(follower, [&](std::string_view line) {
        const auto record = readEventRecord(line);
        if (!record) {
            printer.tellDamaged(1);
        } else if (query.wants(*record)) {
            // Each at once, also into a pipe.
            written = printer.print(*record) && std::fflush(stdout) == 0;
        }
        return written;
    });
    return error != 0 ? complainOfFile(error) : endOfOutput(written);
}

int showEvents(const EventWords& words, const Context& context) {
    EventQuery query;
    query.event = words.event;
    query.failuresOnly = words.failures;
    if (!words.since.empty()) {
        query.since = timeOfWords(words.since, time(nullptr), DayEnd::kFirstSecond);
        if (!query.since) return complain(EX_USAGE, "--since \"" + words.since + "\": expected " + kTimeWords);
    }
    query.most = static_cast<std::size_t>(words.most != 0 ? words.most : query.since ? 0 : kUsualNumber);

    EventFollower follower(eventFile());
    std::optional<EventPosition> end;
    if (words.follow) {
        follower.start(std::nullopt);
        end = follower.position();
    }
    const EventHistory history = readEventHistory(eventFile(), query, end);
    if (history.error != 0 && history.records.empty()) return complainOfFile(history.error);
    EventPrinter printer(context);
    bool written = true;
    for (const EventRecord& record : history.records)
        written = written && printer.print(record);
    printer.tellDamaged(history.damaged);
    const int exitCode = history.error != 0 ? complainOfFile(history.error) : 0;
    if (!words.follow || exitCode != 0 || !written) return endOfOutput(written, exitCode);
    if (std::fflush(stdout) != 0) return endOfOutput(false);
    return follow(follower, query, printer);
}

}  // namespace

void addEventsCommand(Command& root) {
    auto words = std::make_shared<EventWords>();
    root.add("events", "show what has happened to the service on this machine")
        .describe(
            "Events are archives that were finished, failed or removed, service jobs that were switched or died. "
            "They are shown oldest first; failures are red on a terminal.")
        .flag("--follow", words->follow, "go on showing events as they happen, until interrupted", 'f')
        .number("--number", "N", {&words->most, 1, 1'000'000},
                "the last N that are wanted (20, or all that there are with --since)", 'n')
        .text("--since", "TIME", words->since, std::string("from then on: ") + kTimeWords)
        .text("--event", "NAME", words->event, "of this name alone, such as archive_failed")
        .flag("--failures", words->failures, "failures alone")
        .example("ombrel events -f")
        .example("ombrel events --failures --since 7d")
        .exitCode(66, "the event file cannot be read")
        .exitCode(77, "the right to read the event file is missing")
        .run([words](const Context& context) { return showEvents(*words, context); });
}

}  // namespace ombrel
