// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel search`.
#include <sysexits.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/log_filter.h"
#include "tools/ombrel/row_format.h"
#include "tools/ombrel/search_files.h"
#include "tools/ombrel/search_output.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/stop_signals.h"
#include "tools/ombrel/worker_count.h"

namespace ombrel {

namespace {

constexpr int kInterrupted = 130;  // what shells say of Ctrl-C

struct SearchWords {
    FilterWords filter;
    std::string places = "all";
    std::string format;
    long long limit = 0;
};

RowFormat formatOf(const SearchWords& words, const Context& context) {
    if (context.json || words.format == "json") return RowFormat::kJson;
    if (words.format == "csv") return RowFormat::kCsv;
    if (words.format == "text") return RowFormat::kText;
    if (words.format == "table") return RowFormat::kTable;
    return context.out.isTerminal ? RowFormat::kTable : RowFormat::kText;
}

int search(const SearchWords& words, const Context& context) {
    LogFilter filter;
    if (const auto wrong = filter.read(words.filter, ::time(nullptr))) return complain(EX_USAGE, *wrong);
    const SettingsRead settings = readSettings();
    if (!settings.record) return settings.exitCode;

    if (!takeStopSignals()) return complain(EX_OSERR, std::string("no signals: ") + std::strerror(errno));
    SearchFiles files(logPlacesOf(words.places), filter);
    SearchOutput output(context, formatOf(words, context), static_cast<unsigned long long>(words.limit));
    for (const std::string& note : files.notes())
        output.complain(note);
    ZipScratch scratch;
    SearchWorld world{filter, scratch, [&files](const auto& identity) { return files.findArchived(identity); },
                      [&files](const std::string& path) { return files.wasThere(path); }};
    SearchEngine engine(world, files.take(), workerCount());
    output.run(engine);
    if (stopAsked()) return output.end(kInterrupted);
    if (output.hasComplained()) return output.end(EX_NOINPUT);
    return output.end(output.rows() > 0 ? 0 : 1);
}

}  // namespace

void addSearchCommand(Command& root) {
    auto words = std::make_shared<SearchWords>();
    Command& command = root.add("search", "find messages in the databases and their archives, newest first");
    command.optionalWord("TEXT", words->filter.text, "in the message, in any case of ASCII letters");
    addFilterOptions(command, words->filter);
    command.choice("--in", {&words->places, {"live", "archives", "all"}},
                   "which databases: those that are written, archives, or all (default)");
    command.number("--limit", "N", {&words->limit, 1, LLONG_MAX}, "no more than that many rows", 'n');
    command.choice("--format", {&words->format, {"table", "json", "csv", "text"}},
                   "how rows are written: table (default on a terminal), text (default elsewhere), json or csv");
    command.describe(
        "All conditions have to be met. Archives are chosen by the days in their names; those in ZIP files are "
        "unpacked into a folder of this user, one or two at a time. Rows of the same days from several files are "
        "put in one order by their own times. Times are such as 2024-03-03, \"2024-03-03 12:30\", 12:30, "
        "2024-03-03T12:30:00Z, today, yesterday, 90m, 12h or 7d.");
    command.example("ombrel search \"login failed\" --since 7d");
    command.example("ombrel search --host nas1 --severity warning --since yesterday");
    command.example("ombrel search --regex '(?i)disk [a-z]+ (failed|degraded)' --in archives --format csv");
    command.exitCode(0, "rows were found");
    command.exitCode(1, "none was found");
    command.exitCode(EX_NOINPUT, "something could not be read; what was found elsewhere is shown");
    command.exitCode(kInterrupted, "ended by Ctrl-C; what was found so far is shown");
    command.run([words](const Context& context) { return search(*words, context); });
}

}  // namespace ombrel
