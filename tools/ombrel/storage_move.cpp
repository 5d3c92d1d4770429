// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The move of a database file by the library, which answers with a number alone: what is known before and after
// says the rest.
#include <sysexits.h>

#include <cerrno>
#include <cstring>

#include "linux/common/progress_bar.h"
#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/folder_listing.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/machine_files.h"
#include "tools/ombrel/rule_store.h"
#include "tools/ombrel/storage_commands.h"
#include "tools/ombrel/turn.h"
#include "tools/ombrel/waiting.h"

namespace ombrel {

namespace {

constexpr int kNoDestination = -2;
constexpr int kNoRoom = -5;

bool exists(const std::string& path) {
    return VLIBCFileExist(path.c_str()) != 0;
}

bool isWorkingDatabase(const std::string& path) {
    const auto file = logFileAt(path);
    return file && file->kind == LogFile::Kind::kWorking;
}

/// Where the library will put what stands at `path`: the first number that is free. Empty when nothing stands
/// there.
std::string backupOf(const std::string& path) {
    if (!exists(path)) return {};
    for (int n = 0;; ++n) {
        std::string backup = path + "_" + std::to_string(n);
        if (!exists(backup)) return backup;
    }
}

/// 0, or the exit code (said).
int refuseMove(const std::string& from, const std::string& to, bool force) {
    if (from.empty() || to.empty()) return complain(EX_USAGE, "FROM and TO are paths of files");
    if (from == to) return complain(EX_USAGE, "FROM and TO are the same: " + from);
    if (!fileEntry(from)) return complain(EX_NOINPUT, from + ": " + std::strerror(errno));
    if (to.ends_with('/') || to.find('/') == std::string::npos)
        return complain(EX_USAGE, "TO \"" + to + "\": expected the path of a file, with its folder");
    if (force || !isWorkingDatabase(from)) return 0;
    return complain(EX_USAGE,
                    from +
                        " is a working database, to which the log writer goes on writing; ombrel archive "
                        "run is the way to move it, --force moves it all the same");
}

int complainNotMoved(int code, const std::string& from, const std::string& to, unsigned long long bytes,
                     const std::string& backup) {
    const std::string reason = reasonOf(VLIBCErrGet());
    const std::string folder = to.substr(0, to.rfind('/'));
    const std::string kept =
        !backup.empty() && exists(backup) ? "; what stood at " + to + " is " + backup + " now" : "";
    if (code == kNoDestination) return complain(EX_USAGE, "TO is empty");
    if (code == kNoRoom && !fileFacts(folder.empty() ? "/" : folder))
        return complain(1, from + " was not moved: the folder " + folder + " is not there; make it first");
    if (code == kNoRoom)
        return complain(1, from + " was not moved: there is no room for " + sizeText(bytes) + " in " + folder +
                               "; make room or choose another place");
    return complain(1, from + " could not be moved to " + to + reason + kept);
}

/// To another file system a copy grows under a name of its own until it is whole.
int move(const Context& context, const std::string& from, const std::string& to, unsigned long long bytes) {
    const Waiting waiting(context.err, "moving", [&to, bytes]() -> Waiting::Extent {
        const auto part = fileEntry(to + ".part");
        return {part ? part->bytes : 0, bytes};
    });
    return SyslogDBFileMove(from, to);
}

}  // namespace

int moveDatabase(const Context& context, const std::string& from, const std::string& to, bool force) {
    if (const int refused = refuseMove(from, to, force)) return refused;
    Turn turn;
    if (const int refused = turn.take(Turn::For::kFiles)) return refused;
    const auto entry = fileEntry(from);  // it may have gone while the others had their turn
    if (!entry) return complain(EX_NOINPUT, from + ": " + std::strerror(errno));
    const std::string backup = backupOf(to);
    VLIBCErrSetEx(0, "", 0);
    const int code = move(context, from, to, entry->bytes);
    if (code < 0) return complainNotMoved(code, from, to, entry->bytes, backup);
    std::string text = backup.empty() ? "" : "what stood at " + to + " is " + backup + " now\n";
    if (context.json) {
        JsonWriter json;
        json.beginObject().member("from", from).member("to", to).key("backup");
        backup.empty() ? json.null() : json.text(backup);
        text = json.endObject().takeLine();
    }
    return endOfOutput(say(text));
}

}  // namespace ombrel
