// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel storage`: the shares that can hold logs, whether there is room, and the move of a database file.
#include <memory>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/storage_commands.h"

namespace ombrel {

namespace {

struct StorageWords {
    std::string first;
    std::string second;
    bool force = false;
};

void addStorageQuestions(Command& group) {
    group.add("shares", "the shares that can hold the log database, with their room")
        .describe("Listed are shares on local file systems. The one that the settings name is marked.")
        .example("ombrel storage shares")
        .exitCode(78, "the settings cannot be read")
        .run(listShares);
    auto share = std::make_shared<StorageWords>();
    group.add("check", "whether a share can hold the log database, and why not")
        .word("SHARE", share->first, "its name")
        .example("ombrel storage check logs")
        .exitCode(1, "it cannot")
        .run([share](const Context& context) { return checkShareCommand(context, share->first); });
    auto space = std::make_shared<StorageWords>();
    group.add("space", "whether the file system that holds a path has so much room")
        .word("PATH", space->first, "a file or folder", WordKind::kPath)
        .word("BYTES", space->second, "4096, 500M or 10GiB; units are powers of 1024")
        .example("ombrel storage space /volume1/logs 10G")
        .exitCode(1, "it has not")
        .exitCode(66, "PATH cannot be looked at")
        .run([space](const Context& context) { return checkSpace(context, space->first, space->second); });
}

}  // namespace

void addStorageCommand(Command& root) {
    Command& group = root.add("storage", "shares, room, and the move of a database file");
    group.example("ombrel storage shares");
    addStorageQuestions(group);
    auto move = std::make_shared<StorageWords>();
    group.add("move", "move a database file; what stands at TO already is kept as TO_0, TO_1, ...")
        .describe(
            "A working database is refused, since the log writer goes on writing to it: ombrel archive run moves "
            "those.")
        .word("FROM", move->first, "the file", WordKind::kPath)
        .word("TO", move->second, "its new path; the folder has to be there", WordKind::kPath)
        .flag("--force", move->force, "move a working database all the same")
        .example("ombrel storage move /volume1/old.DB /volume1/logs/old.DB")
        .exitCode(1, "the move failed")
        .exitCode(64, "refused, nothing was done")
        .exitCode(66, "FROM cannot be looked at")
        .exitCode(75, "another command is changing something")
        .run([move](const Context& context) {
            return moveDatabase(context, move->first, move->second, move->force);
        });
}

}  // namespace ombrel
