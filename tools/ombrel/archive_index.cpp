// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel archive index`.
#include <sysexits.h>

#include <cerrno>
#include <cstring>

#include "linux/common/path_parts.h"
#include "linux/common/text_escape.h"
#include "ombrel/postprocessor.h"
#include "platform/vesksyslog.h"
#include "src/platform_handles.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/archive_commands.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/log_files.h"
#include "tools/ombrel/turn.h"
#include "tools/ombrel/waiting.h"

namespace ombrel {

namespace {

constexpr const char* kIndexThere =
    "SELECT name FROM sqlite_master WHERE type = 'index' AND name = 'logs_host_idx'";

bool hasIndex(const std::string& path) {
    const Connection connection(VESKDBConnect(nullptr, nullptr, nullptr, path.c_str()));
    if (!connection) return false;
    Result result;
    const int code =
        lend(result, [&](VESKDBRESULT** raw) { return VESKDBExecute(connection.get(), kIndexThere, raw); });
    return code >= 0 && result && VESKDBNumRows(result.get()) > 0;
}

/// Why this file gets no index: the exit code, which has been told, or 0.
int refuse(const std::string& path) {
    const auto file = logFileAt(path);
    if (!file) return complain(errno == EACCES ? EX_NOPERM : EX_NOINPUT, path + ": " + std::strerror(errno));
    if (file->kind == LogFile::Kind::kWorking) {
        return complain(EX_USAGE, path + " is a working database; an index is for archives");
    }
    if (file->kind == LogFile::Kind::kZip) {
        return complain(EX_DATAERR, path + " is a ZIP file; an index is for databases");
    }
    if (SyslogDBVersionGet(path) < 0) return complain(EX_DATAERR, path + " is no log database, or is damaged");
    return 0;
}

bool addIndex(const Context& context, PostProcessor& processor, const std::string& path) {
    const Waiting waiting(context.err, "adding the index to " + nameOf(path));
    return processor.DBIndexAdd(path) == 0;
}

int answer(const Context& context, const std::string& path, bool isAdded) {
    if (context.json) {
        return endOfOutput(
            say(JsonWriter().beginObject().member("path", path).member("added", isAdded).endObject().takeLine()));
    }
    return endOfOutput(say(escapeForLine(path) + (isAdded ? ": index added\n" : " has the index already\n")));
}

}  // namespace

int addHostIndex(const Context& context, const std::string& path) {
    if (const int code = refuse(path)) return code;
    Turn turn;
    if (const int code = turn.take(Turn::For::kFiles)) return code;
    if (hasIndex(path)) return answer(context, path, false);
    PostProcessor processor;
    VLIBCErrSetEx(0, "", 0);
    if (addIndex(context, processor, path)) return answer(context, path, true);
    const std::string why = errorText(VLIBCErrGet());
    return complain(1, path + " got no index" + (why.empty() ? "" : " (" + why + ")") +
                           "; see whether the file and its folder may be written and have room");
}

}  // namespace ombrel
