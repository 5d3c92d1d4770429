// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel export`: all rows of databases in a file that others read.
#include <sysexits.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "linux/common/path_parts.h"
#include "linux/common/progress_bar.h"
#include "ombrel/utils.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/export_databases.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/stop_signals.h"
#include "tools/ombrel/table.h"

namespace ombrel {

namespace {

struct ExportWords {
    std::vector<std::string> paths;
    std::string to;
    std::string format;
    bool force = false;
};

ExportFormat formatOf(const ExportWords& words) {
    if (words.format == "csv" || (words.format.empty() && words.to.ends_with(".csv"))) return ExportFormat::kCsv;
    const bool isNdjson = words.to.ends_with(".ndjson") || words.to.ends_with(".jsonl");
    if (words.format == "ndjson" || (words.format.empty() && isNdjson)) return ExportFormat::kNdjson;
    return ExportFormat::kText;
}

/// The files that are named; the exit code when one of them cannot be, which has been said.
int findFiles(const std::vector<std::string>& paths, std::vector<LogFile>& files) {
    for (const std::string& path : paths) {
        auto file = logFileAt(path);
        if (!file) {
            const int code = errno;
            return complain(code == EACCES ? EX_NOPERM : EX_NOINPUT, path + ": " + std::strerror(code));
        }
        files.push_back(std::move(*file));
    }
    return 0;
}

int sayDone(const Context& context, const ExportWords& words, unsigned long long rows, unsigned long long bytes) {
    if (context.json) {
        JsonWriter json;
        json.beginObject().member("file", words.to).member("rows", rows).member("bytes", bytes).endObject();
        return endOfOutput(say(json.takeLine()));
    }
    if (words.to == "-") return 0;
    Table table({{"FILE"}, {"ROWS", Align::kRight}, {"SIZE", Align::kRight}});
    table.add({{words.to},
               {context.out.isTerminal ? groupedNumber(rows) : std::to_string(rows)},
               {context.out.isTerminal ? sizeText(bytes) : std::to_string(bytes)}});
    return endOfOutput(say(table.text(context.out)));
}

std::string openOutput(const ExportWords& words, const std::vector<LogFile>& files, OutputFile& output) {
    if (words.to == "-") {
        output.openStandardOutput();
        return {};
    }
    const unsigned long long room = roomFor(files, formatOf(words));
    const std::string folder = folderOf(words.to);
    if (std::string wrong = output.open(words.to, words.force); !wrong.empty()) return wrong;
    if (IsVolumeSpaceEnough(folder, room)) return {};
    return "too little space at " + folder + ": about " + sizeText(room) +
           " needed; free some space, or name another folder";
}

int exportTo(const Context& context, const ExportWords& words) {
    if (words.to.empty()) return complain(EX_USAGE, "expected --to FILE; ombrel export --help says more");
    if (context.json && words.to == "-") return complain(EX_USAGE, "--json and --to - exclude each other");
    std::vector<LogFile> files;
    if (const int code = findFiles(words.paths, files)) return code;
    if (!takeStopSignals()) return complain(1, std::string("no signals: ") + std::strerror(errno));
    OutputFile output;
    if (const std::string wrong = openOutput(words, files, output); !wrong.empty())
        return complain(EX_IOERR, wrong);
    Progress progress(context.err, "exporting", "");
    const ExportEnd end = exportDatabases(files, formatOf(words), output, progress);
    progress.clear();
    if (end.exitCode != 0) {
        return complain(end.exitCode, end.error + (words.to == "-" ? "" : "; " + words.to + " was not written"));
    }
    if (const std::string wrong = output.commit(); !wrong.empty()) return complain(EX_IOERR, wrong);
    return sayDone(context, words, end.rows, output.bytes());
}

}  // namespace

void addExportCommand(Command& root) {
    auto words = std::make_shared<ExportWords>();
    root.add("export", "write all rows of databases to a file")
        .describe(
            "The databases (those of a ZIP file in their order) are put behind each other in the order given, "
            "each oldest row first. FILE is there whole or "
            "not at all. txt is the text export of the archives, byte for byte: date, time, severity, host, "
            "facility, "
            "program and message between tabs, as they were sent. In csv (RFC 4180) and ndjson (an object a line) "
            "control characters are escaped. Without --format the end of FILE decides (.csv, .ndjson, .jsonl), "
            "otherwise it is txt. With --json the answer is an object with file, rows and bytes.")
        .words("PATH", words->paths, "a log database, or a ZIP file with databases in it", true, WordKind::kPath)
        .text("--to", "FILE", words->to, "where to; - is standard output")
        .choice("--format", {&words->format, {"txt", "csv", "ndjson"}}, "what FILE is to be")
        .flag("--force", words->force, "replace FILE when it is there already")
        .example("ombrel export /volume1/logs/2024-03-03_2024-03-09.DB --to march.csv")
        .example("ombrel export *.DB --to - --format ndjson | gzip > all.ndjson.gz")
        .exitCode(1, "stopped by Ctrl-C; FILE was not written")
        .exitCode(65, "a PATH is no log database, or a damaged one")
        .exitCode(66, "a PATH cannot be opened")
        .exitCode(74, "FILE is there already or cannot be written, or there is too little space")
        .exitCode(77, "no right to read a PATH, or to the scratch folder of its volume")
        .run([words](const Context& context) { return exportTo(context, *words); });
}

}  // namespace ombrel
