// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel archive`: archives what is due by the rules of the settings, or everything, and looks after the
// archives.
#include <sysexits.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "linux/common/text_escape.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/archive_commands.h"
#include "tools/ombrel/archive_run.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/settings_file.h"
#include "tools/ombrel/turn.h"

namespace ombrel {

namespace {

using WorkingList = std::list<_SYSLOG_WORKING_DB_tag>;

/// The working databases that are named; of a name that is none of them it is told.
std::optional<WorkingList> pickNamed(LogArchiver& archiver, const std::vector<std::string>& names) {
    const WorkingList working = archiver.CurrentWorkingDBGet();
    WorkingList picked;
    for (const std::string& name : names) {
        const auto found = std::find_if(working.begin(), working.end(), [&name](const auto& db) {
            return db.strDBPath == name || db.strDBName == name;
        });
        if (found == working.end()) {
            (void)complain(EX_USAGE, "\"" + name + "\" is no working database; ombrel archive due lists them");
            return std::nullopt;
        }
        const auto isIt = [&found](const auto& db) { return SameDevice(db, *found); };
        if (std::none_of(picked.begin(), picked.end(), isIt)) picked.push_back(*found);
    }
    return picked;
}

std::optional<WorkingList> pick(LogArchiver& archiver, const ArchiveRunWords& words) {
    if (!words.databases.empty()) return pickNamed(archiver, words.databases);
    return words.all ? archiver.CurrentWorkingDBGet() : archiver.ArchiveCheck();
}

/// Its line at once: what comes next may take its time.
bool sayArchived(const Archiving& each) {
    return say("archived " + escapeForLine(each.path) + " (" + std::to_string(each.rows) + " rows)\n") &&
           fflush(stdout) == 0;
}

int archivePicked(const Context& context, LogArchiver& archiver, const WorkingList& databases) {
    std::vector<Archiving> results;
    bool written = true;
    archiveEach(archiver, databases, [&](const Archiving& each) {
        results.push_back(each);
        if (each.hasFailed()) (void)complain(1, each.path + " " + whyNotArchived(each));
        if (each.end == Archiving::End::kDone && !context.json) written = sayArchived(each) && written;
    });
    const bool ok =
        std::none_of(results.begin(), results.end(), [](const auto& each) { return each.hasFailed(); });
    const bool none = std::all_of(results.begin(), results.end(),
                                  [](const auto& each) { return each.end == Archiving::End::kEmpty; });
    if (context.json) {
        JsonWriter json;
        json.beginObject().member("ok", ok);
        addArchivings(json, results);
        written = say(json.endObject().takeLine());
    } else if (none) {
        written = say("nothing to archive\n");
    }
    return endOfOutput(written, ok ? 0 : 1);
}

void describeRun(Command& command) {
    command.exitCode(1, "a database could not be archived; the others were")
        .exitCode(75, "another command was at work for two minutes; nothing was done");
}

void addRun(Command& group) {
    auto words = std::make_shared<ArchiveRunWords>();
    Command& run =
        group.add("run", "archive the databases that are due, all of them, or those that are named")
            .flag("--due", words->due, "those that are due by the rules; so it is without words")
            .flag("--all", words->all, "all that hold rows, whatever the rules say")
            .words("DB", words->databases, "names or paths of working databases", false, WordKind::kPath)
            .example("ombrel archive run --all")
            .example("ombrel archive run VESKSYSLOGDB__ARCH.DB")
            .run([words](const Context& context) { return runArchiving(context, *words); });
    describeRun(run);
}

void addArchiveQuestions(Command& group) {
    group.add("list", "list the archives, the newest first")
        .describe("The rows of an archive in a ZIP file are not counted.")
        .example("ombrel archive list --json")
        .run(listArchives);
    group.add("due", "tell which working databases are due to be archived, and when the others will be")
        .describe(
            "The rules are tried in the order count (arch_count), age (arch_time), size (arch_size); the first "
            "that holds decides.")
        .example("ombrel archive due")
        .run(showDue);
    auto paths = std::make_shared<std::vector<std::string>>();
    group.add("verify", "read archives from end to end and compare them with what they say of themselves")
        .describe(
            "A database has to be whole, to hold as many rows as its information record says and only rows of "
            "the days in its name; the entries of a ZIP file have to have their check sums.")
        .words("PATH", *paths, "archives; all that there are without words", false, WordKind::kPath)
        .exitCode(1, "an archive could not be read")
        .exitCode(65, "an archive is not what it should be")
        .exitCode(66, "there is no such file")
        .example("ombrel archive verify")
        .example("ombrel archive verify /srv/logs/2024-03-03_2024-03-09.DB")
        .run([paths](const Context& context) { return verifyArchives(context, *paths); });
}

}  // namespace

int loadArchiver(LogArchiver& archiver) {
    const SettingsRead read = readSettings();
    if (!read.record) return read.exitCode;
    if (archiver.ConfigLoad(kSettingsFile) == 0) return 0;
    return complain(EX_CONFIG, std::string(kSettingsFile) + " cannot be read any more");
}

int runArchiving(const Context& context, const ArchiveRunWords& words) {
    if (int{words.due} + int{words.all} + int{!words.databases.empty()} > 1) {
        return complain(EX_USAGE,
                        "expected one of --due, --all and names of databases; ombrel archive run --help "
                        "says more");
    }
    Turn turn;
    if (const int code = turn.take()) return code;
    LogArchiver archiver;
    if (const int code = loadArchiver(archiver)) return code;
    const auto databases = pick(archiver, words);
    return databases ? archivePicked(context, archiver, *databases) : EX_USAGE;
}

void addArchiveCommand(Command& root) {
    auto words = std::make_shared<ArchiveRunWords>();
    Command& group = root.add("archive", "archive the databases that are due, or look after the archives");
    group.flag("--all", words->all, "all databases that hold rows, and not only those that are due")
        .example("ombrel archive")
        .example("ombrel archive --all")
        .run([words](const Context& context) { return runArchiving(context, *words); });
    describeRun(group);
    addRun(group);
    addArchiveQuestions(group);
    auto path = std::make_shared<std::string>();
    group.add("index", "add an index on the hosts to an archive, which makes searching by host fast")
        .word("PATH", *path, "the archive, a database", WordKind::kPath)
        .exitCode(65, "it is no log database")
        .exitCode(66, "there is no such file")
        .example("ombrel archive index /srv/logs/2024-03-03_2024-03-09.DB")
        .run([path](const Context& context) { return addHostIndex(context, *path); });
}

}  // namespace ombrel
