// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <algorithm>
#include <array>

#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"
#include "tools/ombrel/status_show.h"
#include "tools/ombrel/table.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

using Lines = std::vector<std::string>;

constexpr int kWide = 110;
constexpr std::size_t kLabelColumns = 12;
constexpr std::size_t kMostNotes = 3;

template <typename Number>
std::string groupedOrUnknown(const std::optional<Number>& number) {
    return number ? groupedNumber(static_cast<unsigned long long>(*number)) : "?";
}

Lines linesOf(const std::string& text) {
    Lines lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::size_t last = text.find_last_not_of(' ', end - 1);  // of a cell without a text
        lines.push_back(text.substr(at, last == std::string::npos || last < at ? 0 : last + 1 - at));
        at = end + 1;
    }
    return lines;
}

Cell stateCell(const std::optional<bool>& running, bool isWanted) {
    if (!running) return {"?", Colour::kYellow};
    if (*running) return {"running", Colour::kGreen};
    return isWanted ? Cell{"down", Colour::kRed} : Cell{"off", Colour::kDim};
}

Cell lossCell(const std::optional<unsigned long long>& lost) {
    return {groupedOrUnknown(lost), lost.value_or(0) > 0 ? Colour::kRed : Colour::kPlain};
}

/// The rows of a table, or as many as fit and how many more there are; its head comes first.
template <typename Row, typename AddRow>
Lines tableLines(const Terminal& terminal, std::vector<Column> columns, const std::vector<Row>& rows,
                 std::size_t most, AddRow addRow) {
    const bool isCut = rows.size() > most;
    const std::size_t shown = isCut ? most - std::min<std::size_t>(most, 1) : rows.size();
    Table table(std::move(columns));
    for (std::size_t i = 0; i < shown; ++i)
        addRow(table, rows[i]);
    Lines lines = linesOf(table.text(terminal));
    if (isCut && most > 0) lines.push_back("... " + groupedNumber(rows.size() - shown) + " more");
    return lines;
}

/// Those that need a person first, then those that do something.
template <typename Row, typename Weight>
void bringForward(std::vector<Row>& rows, std::size_t most, Weight weight) {
    if (rows.size() <= most) return;
    std::stable_sort(rows.begin(), rows.end(), [&](const Row& a, const Row& b) { return weight(a) > weight(b); });
}

std::vector<ReceiverStatus> shownReceivers(const StatusReport& report) {
    std::vector<ReceiverStatus> shown;
    const bool hasRules = std::any_of(report.receivers.begin(), report.receivers.end(), [](const auto& receiver) {
        return receiver.kind == ReceiverStatus::Kind::kRule;
    });
    for (const ReceiverStatus& receiver : report.receivers) {
        const bool isEmpty = receiver.kind == ReceiverStatus::Kind::kRules && !hasRules;
        if (!isEmpty || receiver.running.value_or(false)) shown.push_back(receiver);
    }
    return shown;
}

std::string portText(const ReceiverStatus& receiver) {
    if (!receiver.port) return {};
    return std::to_string(*receiver.port) + "/" + receiver.transport + (receiver.tls ? "+TLS" : "");
}

std::size_t nameColumns(const Terminal& terminal) {
    return terminal.columns >= kWide ? 32 : 16;
}

Lines receiverLines(const Terminal& terminal, std::vector<ReceiverStatus> receivers, std::size_t most) {
    bringForward(receivers, most, [](const ReceiverStatus& receiver) {
        if (receiver.kind != ReceiverStatus::Kind::kRule) return 3;
        if (receiver.isWanted && receiver.running == false) return 2;
        return receiver.isWanted ? 1 : 0;
    });
    const bool hasRates =
        std::any_of(receivers.begin(), receivers.end(), [](const auto& receiver) { return receiver.perSecond; });
    std::vector<Column> columns = {{"RECEIVER"}, {"STATE"}, {"PORT"}, {"MESSAGES", Align::kRight}, {"LOST"}};
    if (hasRates) columns.insert(columns.end() - 1, {"PER SECOND", Align::kRight});
    return tableLines(terminal, columns, receivers, most, [&](Table& table, const ReceiverStatus& receiver) {
        const bool isRule = receiver.kind == ReceiverStatus::Kind::kRule;
        const bool counts = receiver.running.value_or(true);
        const std::string name = shortenMiddle(escapeForLine(receiverName(receiver)), nameColumns(terminal));
        std::vector<Cell> cells = {{(isRule ? "  " : "") + name},
                                   stateCell(receiver.running, receiver.isWanted),
                                   {portText(receiver)},
                                   {counts ? groupedOrUnknown(receiver.messages) : ""}};
        if (hasRates) cells.push_back({receiver.perSecond ? groupedOrUnknown(receiver.perSecond) : ""});
        cells.push_back(counts ? lossCell(lostOf(receiver)) : Cell{});
        table.add(std::move(cells));
    });
}

std::string minuteText(const DatabaseStatus& database) {
    return (database.isMoreThan ? ">" : "") + groupedOrUnknown(database.lastMinute);
}

Lines databaseLines(const Terminal& terminal, std::vector<DatabaseStatus> databases, std::size_t most) {
    const auto isDue = [](const DatabaseStatus& database) { return database.due != ArchiveRule::kNone; };
    bringForward(databases, most, [&](const DatabaseStatus& database) {
        return std::pair(!database.rows || isDue(database), database.lastMinute.value_or(0));
    });
    const bool isWide = terminal.columns >= kWide;
    std::vector<Column> columns = {{"DATABASE"}, {"ROWS", Align::kRight},     {"SIZE", Align::kRight},
                                   {"SINCE"},    {"LAST MIN", Align::kRight}, {"ARCHIVING"}};
    if (isWide) columns.insert(columns.begin() + 4, {"LAST DAY"});
    return tableLines(terminal, columns, databases, most, [&](Table& table, const DatabaseStatus& database) {
        std::vector<Cell> cells = {{shortenMiddle(escapeForLine(database.device), nameColumns(terminal))},
                                   {groupedOrUnknown(database.rows)},
                                   {sizeText(database.bytes)},
                                   {database.firstDay}};
        if (isWide) cells.push_back({database.lastDay});
        cells.push_back({minuteText(database)});
        cells.push_back({dueText(database), isDue(database) ? Colour::kYellow : Colour::kPlain});
        table.add(std::move(cells));
    });
}

Lines eventLines(const Terminal& terminal, const std::vector<EventRecord>& events, std::size_t most) {
    Table table({{"LAST EVENTS"}, {""}, {""}});
    const std::size_t shown = std::min(events.size(), most);
    for (auto event = events.end() - static_cast<std::ptrdiff_t>(shown); event != events.end(); ++event) {
        const Colour colour = isFailure(*event) ? Colour::kRed : Colour::kPlain;
        table.add({{localTimeText(event->time)}, {event->line.event, colour}, {eventText(*event), colour}});
    }
    return linesOf(table.text(terminal));
}

std::string labelled(const Terminal& terminal, const std::string& label, const std::string& text) {
    const std::string cut =
        cutToColumns(text, static_cast<std::size_t>(std::max(terminal.columns, 20)) - kLabelColumns);
    return painted(terminal, Colour::kBold, label) + std::string(kLabelColumns - label.size(), ' ') + cut;
}

/// Words in as many lines as they need; the label stands before the first one.
void addWords(const Terminal& terminal, std::string label, Colour colour, const Lines& words, Lines& lines) {
    std::string line;
    const auto finish = [&] {
        lines.push_back(painted(terminal, colour == Colour::kRed ? Colour::kRed : Colour::kBold, label) +
                        std::string(kLabelColumns - label.size(), ' ') + painted(terminal, colour, line));
        line.clear();
        label.clear();
    };
    for (const std::string& word : words) {
        const std::size_t columns = kLabelColumns + line.size() + 1 + word.size();
        if (!line.empty() && columns > static_cast<std::size_t>(terminal.columns)) finish();
        line += (line.empty() ? "" : " ") + word;
    }
    if (!line.empty()) finish();
}

Lines jobLines(const Terminal& terminal, const StatusReport& report) {
    struct Group {
        const char* label;
        Colour colour;
        Lines names;
    };
    std::array<Group, 4> groups = {{{"Jobs up", Colour::kGreen, {}},
                                    {"Jobs down", Colour::kRed, {}},
                                    {"Jobs off", Colour::kDim, {}},
                                    {"Jobs ?", Colour::kYellow, {}}}};
    for (const JobStatus& job : report.jobs) {
        const std::size_t group = !job.running ? 3 : *job.running ? 0 : job.isWanted ? 1 : 2;
        groups[group].names.push_back(job.name);
    }
    Lines lines;
    for (const Group& group : groups)
        addWords(terminal, group.label, group.colour, group.names, lines);
    return lines;
}

std::string archiveText(const StatusReport& report) {
    if (!report.archives) return "?";
    const ArchiveStatus& archives = *report.archives;
    const std::string folder = " in " + escapeForLine(archives.folder);
    if (archives.count == 0) return "none" + folder;
    return groupedNumber(archives.count) + (archives.count == 1 ? " file, " : " files, ") +
           sizeText(archives.bytes) + ", " + archives.oldestDay + " to " + archives.newestDay + folder;
}

std::string volumeText(const StatusReport& report) {
    if (!report.volume) return "?";
    const auto& [free, total] = *report.volume;
    return sizeText(free) + " of " + sizeText(total) + " free" +
           (total == 0 ? "" : " (" + std::to_string(100 * (free / 1024) / std::max(total / 1024, 1ULL)) + " %)");
}

Lines factLines(const Terminal& terminal, const StatusReport& report) {
    Lines lines = jobLines(terminal, report);
    lines.push_back(labelled(terminal, "Archives", archiveText(report)));
    lines.push_back(labelled(terminal, "Volume", volumeText(report)));
    const std::string last = !report.lastArchived        ? "?"
                             : *report.lastArchived == 0 ? "never"
                                                         : localTimeText(*report.lastArchived);
    lines.push_back(labelled(terminal, "Archived", last));
    return lines;
}

std::string titleLine(const Terminal& terminal, const StatusReport& report) {
    const auto minute = lastMinuteOf(report);
    const std::string count =
        minute ? (minute->isMoreThan ? "more than " : "") + groupedNumber(minute->messages) : std::string("?");
    const std::string unit = minute && minute->messages == 1 && !minute->isMoreThan ? " message" : " messages";
    return painted(terminal, Colour::kBold, "ombrel status") + "  " + localTimeText(report.time) + "  " + count +
           unit + " in the last minute";
}

/// What fits into a line with the codes of its colours, which take no place.
std::string cutPainted(const std::string& line, std::size_t columns) {
    std::string cut;
    std::string plain;  // up to the next code
    const auto add = [&] {
        const std::string fits = cutToColumns(plain, columns);
        columns = fits.size() < plain.size() ? 0 : columns - mostColumns(fits);
        cut += fits;
        plain.clear();
    };
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] != '\x1b') {
            plain += line[i];
            continue;
        }
        add();
        const std::size_t end = std::min(line.find('m', i), line.size() - 1);
        cut.append(line, i, end - i + 1);
        i = end;
    }
    add();
    return cut;
}

/// What is left of the lines for the lists, one for each in turn.
struct LineShare {
    std::size_t wanted;
    std::size_t given = 0;
};
void share(std::size_t lines, std::array<LineShare, 3>& lists) {
    for (bool isGiven = true; lines > 0 && isGiven;) {
        isGiven = false;
        for (LineShare& list : lists) {
            if (list.given == list.wanted || lines == 0) continue;
            ++list.given;
            --lines;
            isGiven = true;
        }
    }
}

}  // namespace

std::string statusScreen(const StatusReport& report, const Terminal& terminal) {
    const std::vector<ReceiverStatus> receivers = shownReceivers(report);
    const std::vector<EventRecord> events = report.events.value_or(std::vector<EventRecord>());
    const Lines facts = factLines(terminal, report);
    const std::size_t notes = std::min(report.notes.size(), kMostNotes);

    std::array<LineShare, 3> lists = {{{receivers.size()}, {report.databases.size()}, {events.size()}}};
    std::size_t fixed = 1 + facts.size() + notes;
    for (const LineShare& list : lists)
        fixed += list.wanted > 0 ? 1 : 0;  // its head
    const auto lines = static_cast<std::size_t>(std::max(terminal.lines, 1));
    share(lines > fixed ? lines - fixed : 0, lists);

    std::vector<Lines> parts = {{titleLine(terminal, report)}};
    for (std::size_t i = 0; i < notes; ++i) {
        const std::string note =
            cutToColumns(escapeForLine(report.notes[i]), static_cast<std::size_t>(terminal.columns));
        parts[0].push_back(painted(terminal, Colour::kYellow, note));
    }
    parts.push_back(receiverLines(terminal, receivers, lists[0].given));
    parts.push_back(databaseLines(terminal, report.databases, lists[1].given));
    parts.push_back(facts);
    parts.push_back(eventLines(terminal, events, lists[2].given));
    std::erase_if(parts, [](const Lines& part) { return part.empty(); });

    std::size_t used = 0;
    for (const Lines& part : parts)
        used += part.size();
    const bool hasRoom = used + parts.size() - 1 <= lines;  // for a line between the parts
    Lines all;
    for (const Lines& part : parts) {
        if (hasRoom && !all.empty()) all.emplace_back();
        all.insert(all.end(), part.begin(), part.end());
    }
    std::string text;
    for (std::size_t i = 0; i < std::min(all.size(), lines); ++i)
        text += (i == 0 ? "" : "\n") + cutPainted(all[i], static_cast<std::size_t>(terminal.columns));
    return text;
}

}  // namespace ombrel
