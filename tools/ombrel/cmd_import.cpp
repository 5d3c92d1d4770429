// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel import`: the log writer stores the messages of files.
#include <sysexits.h>

#include <memory>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/exec_program.h"

namespace ombrel {

namespace {

constexpr const char* kWriterProgram = "/var/packages/Ombrel/target/sbin/ombrel-logwriter";
constexpr long long kNoYear = 0;

struct ImportWords {
    long long year = kNoYear;
    std::string host;
    std::vector<std::string> files;
};

int import(const Context& context, const ImportWords& words) {
    std::vector<std::string> passed = {"--import=" + words.files.front()};
    if (words.year != kNoYear) passed.push_back("--year=" + std::to_string(words.year));
    if (!words.host.empty()) passed.push_back("--host=" + words.host);
    if (context.json) passed.emplace_back("--json");
    passed.emplace_back("--");  // whatever the other files are called
    passed.insert(passed.end(), words.files.begin() + 1, words.files.end());
    for (const std::string& file : words.files) {
        if (file.empty()) return complain(EX_USAGE, "a file has no name; ombrel import --help says more");
    }
    return execProgram(kWriterProgram, passed);
}

}  // namespace

void addImportCommand(Command& root) {
    auto words = std::make_shared<ImportWords>();
    root.add("import", "store the messages of log files in the working database")
        .describe(
            "Each line of a file is one message, in any format that devices send. It is stored under its own "
            "time, "
            "while the receivers and the log writer may go on. Importing a file again stores its messages again. "
            "A "
            "file that fails does not stop the others. With --json a line for each file: file, ok, rows, "
            "split_lines, duration_seconds and error, which is null when ok.")
        .words("FILE", words->files, "a log file; - is standard input", true, WordKind::kPath)
        .number("--year", "YYYY", {&words->year, 1970, 9999},
                "the year of the first line whose time has none (guessed from each file)")
        .text("--host", "NAME", words->host, "the host of lines that name none (localhost)")
        .example("ombrel import /var/log/syslog.1")
        .example("zcat /var/log/syslog.2.gz | ombrel import - --year 2023 --host gateway")
        .exitCode(66, "a file cannot be opened")
        .exitCode(72, "the layout file of log databases is missing")
        .exitCode(74, "a file cannot be read, or its messages cannot be stored")
        .exitCode(77, "no right to run the log writer")
        .exitCode(78, "the settings cannot be read")
        .run([words](const Context& context) { return import(context, *words); });
}

}  // namespace ombrel
