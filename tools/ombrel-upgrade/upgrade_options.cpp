// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/upgrade_options.h"

#include <getopt.h>

#include <array>

namespace ombrel {

const char* const kUpgradeUsage =
    "usage: ombrel-upgrade [--dry-run] [--remove-old] [--zip] [--json] (--all | PATH...)\n"
    "\n"
    "Converts log databases of the old layout (version 1) to the current one, row by row. The old file stays\n"
    "beside the new one as NAME.v1. May be ended at any moment: run again, it goes on where it was.\n"
    "  --all         the databases in the share of the log database and in the archive folder, and in their\n"
    "                sub-folders (one level)\n"
    "  PATH          a database; with --zip also a ZIP file with databases in it\n"
    "  --dry-run     only show what there is to do and the space it takes; nothing is changed\n"
    "  --remove-old  do not keep the old files\n"
    "  --zip         look into ZIP files (*.ZIP) too\n"
    "  --json        answer in JSON, an object a line; its member \"type\" is one of\n"
    "                file     with file, state (\"done\", \"failed\" or \"stopped\"), rows, duration_seconds, "
    "old_file,\n"
    "                         notice and error\n"
    "                plan     of --dry-run: with file, kind (\"database\", \"set_aside\" or \"zip\"), rows, "
    "databases,\n"
    "                         size_bytes, needed_bytes, done_rows and new_file\n"
    "                volume   of --dry-run: with folder, needed_bytes, free_bytes and enough\n"
    "                note     with text and file\n"
    "                summary  with upgraded, failed and left\n"
    "A database that the log writer has set aside (NAME.DB.old-N) gets an archive name first.\n"
    "Examples:\n"
    "  ombrel-upgrade --all --zip --dry-run\n"
    "  ombrel-upgrade --all\n"
    "  ombrel-upgrade --remove-old /volume1/logs/2021-01-01_2021-01-31.DB\n"
    "Exit codes; when several things are wrong, that of the first (the other files are converted all the same):\n"
    "  0   done, or nothing to do\n"
    "  64  wrong words, or a PATH that is a folder or a symbolic link\n"
    "  65  a PATH is no log database; a database is damaged or has more than 2,147,483,647 rows\n"
    "  66  there is no such file\n"
    "  69  the work folder cannot be used\n"
    "  70  out of memory, no signals\n"
    "  73  too little space; nothing was begun\n"
    "  74  a database could not be converted\n"
    "  75  stopped; run it again to go on\n"
    "  77  no right to read or write\n"
    "  78  the settings cannot be read, or do not name the folders\n";

namespace {

bool takeOption(int option, UpgradeOptions& options) {
    switch (option) {
        case 'a':
            options.all = true;
            return true;
        case 'd':
            options.dryRun = true;
            return true;
        case 'r':
            options.removeOld = true;
            return true;
        case 'z':
            options.zip = true;
            return true;
        case 'j':
            options.json = true;
            return true;
        case 'h':
            options.help = true;
            return true;
        default:
            return false;
    }
}

}  // namespace

std::string readUpgradeOptions(int argc, char** argv, UpgradeOptions& options) {
    static const std::array<option, 7> kOptions = {{{"all", no_argument, nullptr, 'a'},
                                                    {"dry-run", no_argument, nullptr, 'd'},
                                                    {"remove-old", no_argument, nullptr, 'r'},
                                                    {"zip", no_argument, nullptr, 'z'},
                                                    {"json", no_argument, nullptr, 'j'},
                                                    {"help", no_argument, nullptr, 'h'},
                                                    {nullptr, 0, nullptr, 0}}};
    ::opterr = 0;  // it would say a line of its own
    ::optind = 0;  // from the first word, also when it has read others before
    for (;;) {
        const int option = ::getopt_long(argc, argv, "h", kOptions.data(), nullptr);
        if (option == -1) break;
        if (!takeOption(option, options)) return "there is no such option, or it takes no value";
    }
    for (int i = ::optind; i < argc; ++i)
        options.paths.emplace_back(argv[i]);
    if (options.help) return {};
    if (options.all && !options.paths.empty()) return "expected either --all or the paths of databases, not both";
    if (!options.all && options.paths.empty()) return "expected --all or the paths of databases";
    for (const std::string& path : options.paths) {
        if (path.empty()) return "a path is empty";
    }
    return {};
}

}  // namespace ombrel
