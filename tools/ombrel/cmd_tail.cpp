// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel tail`: the last rows, and those that come.
#include <sysexits.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "src/fixed_paths.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/log_filter.h"
#include "tools/ombrel/row_format.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/tail_follow.h"

namespace ombrel {

namespace {

constexpr long long kMostRows = 100'000;

struct TailWords {
    bool follow = false;
    long long count = 10;
    std::string format;
    FilterWords filter;
};

RowFormat formatOf(const Context& context, const std::string& word) {
    if (context.json || word == "json") return RowFormat::kJson;
    if (word == "csv") return RowFormat::kCsv;
    if (word == "text") return RowFormat::kText;
    if (word == "table") return RowFormat::kTable;
    return context.out.isTerminal ? RowFormat::kTable : RowFormat::kText;
}

int tail(const Context& context, const TailWords& words) {
    LogFilter filter;
    if (const auto wrong = filter.read(words.filter, ::time(nullptr))) {
        return complain(EX_USAGE, *wrong + "; ombrel tail --help says more");
    }
    if (context.json && !words.format.empty() && words.format != "json") {
        return complain(EX_USAGE, "--json and --format " + words.format + " exclude each other");
    }
    if (const SettingsRead settings = readSettings(); !settings.record) return settings.exitCode;
    const RowFormat format = formatOf(context, words.format);
    LogArchiver archiver;
    std::unique_ptr<FollowWatch> watch;
    if (words.follow) {
        watch = openFollowWatch(kSettingsFile);
        if (!watch) return complain(1, std::string("new rows cannot be waited for: ") + std::strerror(errno));
    }
    bool isWritten = format != RowFormat::kCsv || say(csvHead());
    TailFollow rows(archiver, filter, watch.get(), [&](const LogRow& row) {
        isWritten = say(rowLine(row, format, context.out));
        return isWritten;
    });
    if (isWritten) rows.printLast(static_cast<std::size_t>(words.count));
    if (!watch) return endOfOutput(isWritten, rows.exitCode());
    if (isWritten) rows.follow([&isWritten] { return isWritten = std::fflush(stdout) == 0; });
    return watch->stopAsked() ? 0 : endOfOutput(isWritten);
}

}  // namespace

void addTailCommand(Command& root) {
    auto words = std::make_shared<TailWords>();
    Command& command = root.add("tail", "show the last rows, and with -f those that come");
    command
        .describe(
            "The last rows of all working databases, oldest first. With -f it goes on with each row that is "
            "stored, "
            "also while databases are archived and new ones begin, until Ctrl-C, which is exit code 0. Rows are "
            "stored a moment after they came, at the latest after system_flush_timeout seconds.")
        .optionalWord("TEXT", words->filter.text, "in the message, in any case of letters")
        .flag("--follow", words->follow, "go on with the rows that come", 'f')
        .number("--lines", "N", {&words->count, 0, kMostRows}, "how many rows (10)", 'n')
        .choice("--format", {&words->format, {"table", "json", "csv", "text"}},
                "how rows are shown: table on a terminal, text elsewhere");
    addFilterOptions(command, words->filter);
    command.example("ombrel tail -f")
        .example("ombrel tail -n 100 --host gateway --severity err")
        .example("ombrel tail -f \"link down\" --format json")
        .exitCode(66, "a database or the archive folder cannot be opened; the rows of the others are shown")
        .exitCode(77, "no right to read a database or the archive folder; root may")
        .exitCode(78, "the settings cannot be read")
        .run([words](const Context& context) { return tail(context, *words); });
}

}  // namespace ombrel
