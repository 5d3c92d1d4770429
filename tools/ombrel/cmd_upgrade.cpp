// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel upgrade`: databases of the old layout become ones of the current layout.
#include <sysexits.h>

#include <memory>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/exec_program.h"

namespace ombrel {

namespace {

constexpr const char* kUpgradeProgram = "/var/packages/Ombrel/target/sbin/ombrel-upgrade";

struct UpgradeWords {
    bool all = false;
    bool dryRun = false;
    bool removeOld = false;
    bool zip = false;
    std::vector<std::string> paths;
};

int upgrade(const Context& context, const UpgradeWords& words) {
    if (words.all == !words.paths.empty()) {
        return complain(EX_USAGE,
                        "expected either --all or the paths of databases; ombrel upgrade --help says more");
    }
    std::vector<std::string> passed;
    if (words.all) passed.emplace_back("--all");
    if (words.dryRun) passed.emplace_back("--dry-run");
    if (words.removeOld) passed.emplace_back("--remove-old");
    if (words.zip) passed.emplace_back("--zip");
    if (context.json) passed.emplace_back("--json");
    passed.emplace_back("--");  // whatever the files are called
    passed.insert(passed.end(), words.paths.begin(), words.paths.end());
    return execProgram(kUpgradeProgram, passed);
}

}  // namespace

void addUpgradeCommand(Command& root) {
    auto words = std::make_shared<UpgradeWords>();
    root.add("upgrade", "convert databases of the old layout")
        .describe(
            "Converts log databases of the old layout (version 1) to the current one, row by row. The old file "
            "stays "
            "beside the new one as NAME.v1. May be ended at any moment: run again, it goes on where it was. With "
            "--json an object a line; its member \"type\" is \"file\", \"plan\", \"volume\", \"note\" or "
            "\"summary\", and "
            "ombrel-upgrade --help lists the members of each.")
        .words("PATH", words->paths, "a database; with --zip also a ZIP file with databases in it", false,
               WordKind::kPath)
        .flag("--all", words->all,
              "the databases in the share of the log database and in the archive folder, and in their sub-folders "
              "(one level)")
        .flag("--dry-run", words->dryRun, "only show what there is to do and the space it takes")
        .flag("--remove-old", words->removeOld, "do not keep the old files")
        .flag("--zip", words->zip, "look into ZIP files (*.ZIP) too")
        .example("ombrel upgrade --all --zip --dry-run")
        .example("ombrel upgrade --all")
        .example("ombrel upgrade --remove-old /volume1/logs/2021-01-01_2021-01-31.DB")
        .exitCode(65, "a PATH is no log database, or a database is damaged or has more than 2,147,483,647 rows")
        .exitCode(66, "there is no such file")
        .exitCode(69, "the work folder cannot be used")
        .exitCode(73, "too little space; nothing was begun")
        .exitCode(74, "a database could not be converted")
        .exitCode(75, "stopped; run it again to go on")
        .exitCode(77, "no right to read or write")
        .exitCode(78, "the settings cannot be read, or do not name the folders")
        .run([words](const Context& context) { return upgrade(context, *words); });
}

}  // namespace ombrel
