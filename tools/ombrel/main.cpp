// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel`, the command line. Exit codes: 0 done, 1 something failed, 64 wrong words, 78 bad settings or rules.
#include <sysexits.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "tools/ombrel/commands.h"

namespace {

struct Command {
    std::string_view name;
    int (*run)(std::span<char* const>);
    const char* help;
};

constexpr Command kCommands[] = {
    {"archive", ombrel::cmdArchive,
     "archive [--all]          archive the databases that are due, or all that hold rows"},
    {"job", ombrel::cmdJob, "job ACTION NAME          ACTION: start, stop, restart, reload, status"},
    {"rule", ombrel::cmdRule,
     "rule list                customized receiving rules, a line each\n"
     "  ombrel rule add NAME port=N [KEY=VALUE...]  receive on another port; ombrel rule --help says more"},
    {"settings", ombrel::cmdSettings,
     "settings show            all settings, a line each\n"
     "  ombrel settings set KEY=VALUE...  change settings and apply them to the receivers and the archiving"},
};

void printHelp(FILE* out) {
    (void)fputs("usage: ombrel COMMAND ...\n", out);
    for (const auto& command : kCommands)
        (void)fprintf(out, "  ombrel %s\n", command.help);
    (void)fputs(
        "Examples:\n"
        "  ombrel settings set server_port=5514 server_trans=udp\n"
        "  ombrel rule add printers port=1514 format=BSD protocol=udp\n"
        "  ombrel job status pkg-Ombrel-custrule\n"
        "Exit codes: 0 done (of status: running), 1 something failed (of status: not running), 64 wrong\n"
        "words, 78 the settings or rules cannot be read\n",
        out);
}

}  // namespace

int main(int argc, char** argv) {
    const std::span<char* const> words(argv, static_cast<std::size_t>(argc));
    if (words.size() < 2) return ombrel::complain(EX_USAGE, "expected a command; ombrel --help lists them");
    const std::string_view name = words[1];
    if (name == "--help" || name == "help") {
        printHelp(stdout);
        return EX_OK;
    }
    for (const auto& command : kCommands) {
        if (command.name == name) return command.run(words.subspan(2));
    }
    return ombrel::complain(EX_USAGE, "no command \"" + std::string(name) + "\"; ombrel --help lists them");
}
