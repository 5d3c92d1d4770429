// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel stats`: how many rows there are of each host, program, severity, hour or day.
#include <sysexits.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <memory>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/log_filter.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/stats_show.h"

namespace ombrel {

namespace {

struct StatsWords {
    std::string by = "host";
    std::string in = "all";
    long long limit = 0;
    FilterWords filter;
};

int complainOf(const std::vector<std::string>& notes, int exitCode) {
    for (const std::string& note : notes) {
        const bool isForbidden = note.ends_with(std::strerror(EACCES));
        const int code = complain(isForbidden ? EX_NOPERM : EX_NOINPUT, note);
        if (exitCode == 0) exitCode = code;
    }
    return exitCode;
}

int stats(const Context& context, const StatsWords& words) {
    LogFilter filter;
    if (const auto wrong = filter.read(words.filter, ::time(nullptr))) {
        return complain(EX_USAGE, *wrong + "; ombrel stats --help says more");
    }
    if (const SettingsRead settings = readSettings(); !settings.record) return settings.exitCode;
    LogArchiver archiver;
    const LogFiles found = findLogFiles(archiver, logPlacesOf(words.in));
    const StatsBy by = statsByOf(words.by);
    Progress progress(context.err, "counting", "rows");
    StatsResult result =
        countFiles(filesBetween(found.files, filter), {by, filter, !words.filter.regex.empty()}, progress);
    const int exitCode = complainOf(result.failed, complainOf(found.notes, 0));
    const StatsAnswer answer = statsAnswer(std::move(result), by, words.by, static_cast<std::size_t>(words.limit));
    return endOfOutput(say(statsText(answer, context)), exitCode);
}

}  // namespace

void addStatsCommand(Command& root) {
    auto words = std::make_shared<StatsWords>();
    Command& command = root.add("stats", "count rows by host, program, severity, hour or day");
    command
        .describe(
            "Counts are shown largest first, hours and days in their order. Elsewhere than on a terminal each "
            "line "
            "is a name and a number with a tab between them. Of more than 100,000 names those with the fewest "
            "rows "
            "are summed as others.")
        .choice("--by", {&words->by, {"host", "program", "severity", "hour", "day"}},
                "what rows have in common (host)")
        .choice("--in", {&words->in, {"live", "archives", "all"}},
                "the databases that are written to now, the archives, or both (all)")
        .number("--limit", "N", {&words->limit, 1, INT_MAX},
                "only the N largest, or the last N hours or days; the rest is summed as others")
        .text("--text", "TEXT", words->filter.text, "in the message, in any case of letters");
    addFilterOptions(command, words->filter);
    command.example("ombrel stats --limit 10")
        .example("ombrel stats --by severity --since 24h")
        .example("ombrel stats --by hour --host gateway --severity err --since yesterday --json")
        .exitCode(66, "a database or the archive folder cannot be read; the rows of the others are counted")
        .exitCode(77, "no right to read a database or the archive folder; root may")
        .exitCode(78, "the settings cannot be read")
        .run([words](const Context& context) { return stats(context, *words); });
}

}  // namespace ombrel
