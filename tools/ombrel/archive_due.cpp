// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel archive due`.
#include "tools/ombrel/archive_due.h"

#include <ctime>

#include "linux/common/progress_bar.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/archive_commands.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/size_words.h"
#include "tools/ombrel/table.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

std::string number(long long value) {
    return value < 0 ? "-" + groupedNumber(static_cast<unsigned long long>(-value))
                     : groupedNumber(static_cast<unsigned long long>(value));
}

struct Looked {
    LogFile file;
    Probed probed;
    DueState state;
};

/// The probes say "now" of a file that is gone, and 0 of one that cannot be opened, as the rules want it.
Looked lookAt(LogArchiver& archiver, const LogFile& file, long long now) {
    Looked looked{file, {}, {}};
    looked.probed.rows = archiver.DBCountGet(file.path);
    looked.probed.firstTime = archiver.DBStartTimeGet(file.path);
    looked.probed.sizeMib = archiver.DBSizeGet(file.path);
    looked.state = dueState(archiver, looked.probed, now);
    return looked;
}

template <typename Value>
std::optional<Value> onlyIf(bool condition, Value value) {
    return condition ? std::optional(value) : std::nullopt;
}

bool hasTime(const Probed& probed) {
    return probed.rows > 0 && probed.firstTime > 0;
}

std::optional<std::string> timeOrNull(std::optional<long long> time) {
    return time ? std::optional(timeJson(*time)) : std::nullopt;
}

void addJson(JsonWriter& json, const LogArchiver& archiver, const Looked& looked, long long now) {
    const Probed& probed = looked.probed;
    const DueState& state = looked.state;
    json.beginObject()
        .member("path", looked.file.path)
        .member("device", looked.file.device)
        .member("rows", onlyIf(probed.rows >= 0, probed.rows))
        .member("size_bytes", looked.file.bytes)
        .member("first_time", timeOrNull(onlyIf(hasTime(probed), probed.firstTime)))
        .member("age_seconds", onlyIf(hasTime(probed), now - probed.firstTime))
        .member("due", state.isDue())
        .member("rule", onlyIf(state.isDue(), std::string(ruleName(state.rule))))
        .member("due_at", timeOrNull(state.dueAt))
        .member("rows_missing", state.rowsMissing)
        .member("missing_bytes", onlyIf(state.mibMissing.has_value(), state.mibMissing.value_or(0) * kMib))
        .member("what", dueText(state, archiver, probed))
        .endObject();
}

std::string asJson(const LogArchiver& archiver, const std::vector<Looked>& databases, long long now) {
    JsonWriter json;
    json.beginObject()
        .key("rules")
        .beginObject()
        .member("rows", onlyIf(archiver.ArchCount != 0, archiver.ArchCount))
        .member("age_seconds", onlyIf(archiver.ArchInterval != 0, archiver.ArchInterval))
        .member("size_bytes", onlyIf(archiver.ArchSize != 0, archiver.ArchSize * kMib))
        .endObject()
        .key("databases")
        .beginArray();
    for (const Looked& looked : databases)
        addJson(json, archiver, looked, now);
    return json.endArray().endObject().takeLine();
}

std::string asTable(const Context& context, const LogArchiver& archiver, const std::vector<Looked>& databases,
                    long long now) {
    Table table({{"DATABASE"}, {"ROWS", Align::kRight}, {"SIZE", Align::kRight}, {"AGE", Align::kRight}, {"DUE"}});
    const bool forPeople = context.out.isTerminal;
    for (const Looked& looked : databases) {
        const Probed& probed = looked.probed;
        const long long age = now - probed.firstTime;
        const std::string ageText = forPeople ? durationText(static_cast<double>(age)) : std::to_string(age);
        const unsigned long long bytes = looked.file.bytes;
        table.add(
            {{looked.file.path},
             {probed.rows < 0 ? ""
              : forPeople     ? number(probed.rows)
                              : std::to_string(probed.rows)},
             {forPeople ? sizeText(bytes) : std::to_string(bytes)},
             {hasTime(probed) ? ageText : ""},
             {dueText(looked.state, archiver, probed), looked.state.isDue() ? Colour::kYellow : Colour::kPlain}});
    }
    return table.text(context.out);
}

/// Why the rule holds.
std::string holding(ArchiveRule rule, const LogArchiver& archiver) {
    switch (rule) {
        case ArchiveRule::kCount:
            return "more than " + number(archiver.ArchCount) + " rows";
        case ArchiveRule::kAge:
            return "older than " + durationText(archiver.ArchInterval);
        case ArchiveRule::kSize:
            return "larger than " + number(archiver.ArchSize) + " MiB";
        case ArchiveRule::kNone:
            break;
    }
    return "";
}

}  // namespace

const char* ruleName(ArchiveRule rule) {
    constexpr const char* kNames[] = {"", "count", "age", "size"};
    return kNames[static_cast<std::size_t>(rule)];
}

// The comparisons are those of the archiver: what is merely reached makes nothing due.
DueState dueState(const LogArchiver& archiver, const Probed& database, long long now) {
    DueState state;
    if (archiver.ArchCount != 0) {
        if (database.rows > archiver.ArchCount) return {ArchiveRule::kCount, {}, {}, {}};
        state.rowsMissing = archiver.ArchCount + 1LL - database.rows;
    }
    if (archiver.ArchInterval != 0) {
        if (now - database.firstTime > archiver.ArchInterval) return {ArchiveRule::kAge, {}, {}, {}};
        state.dueAt = database.firstTime + archiver.ArchInterval + 1;
    }
    if (archiver.ArchSize != 0) {
        if (database.sizeMib > archiver.ArchSize) return {ArchiveRule::kSize, {}, {}, {}};
        state.mibMissing = archiver.ArchSize + 1LL - database.sizeMib;
    }
    return state;
}

std::string dueText(const DueState& state, const LogArchiver& archiver, const Probed& database) {
    if (database.rows < 0) return "cannot be read as a log database; it is left in place";
    if (database.rows == 0) return "holds no rows, so it is left in place";
    if (state.isDue()) return "due: " + holding(state.rule, archiver);
    std::string text;
    const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", or ") + part; };
    if (state.rowsMissing) add("after " + number(*state.rowsMissing) + " more rows");
    if (state.dueAt) add("at " + localTimeText(*state.dueAt));
    if (state.mibMissing) add("after " + number(*state.mibMissing) + " more MiB");
    return text.empty() ? "never: no rule is on" : text;
}

int showDue(const Context& context) {
    LogArchiver archiver;
    if (const int code = loadArchiver(archiver)) return code;
    const long long now = std::time(nullptr);
    std::vector<Looked> databases;
    for (const auto& db : archiver.CurrentWorkingDBGet()) {
        const auto file = logFileAt(db.strDBPath);
        if (!file) continue;  // gone meanwhile
        databases.push_back(lookAt(archiver, *file, now));
        databases.back().file.device = db.strDevice;
    }
    return endOfOutput(
        say(context.json ? asJson(archiver, databases, now) : asTable(context, archiver, databases, now)));
}

}  // namespace ombrel
