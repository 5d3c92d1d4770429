// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel archive verify`.
#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "linux/common/text_escape.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/archive_check.h"
#include "tools/ombrel/archive_commands.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/progress.h"

namespace ombrel {

namespace {

/// Those that are named, or all; the exit code of what cannot be looked at, which has been told.
int collect(const std::vector<std::string>& paths, std::vector<LogFile>& archives) {
    if (paths.empty()) {
        LogArchiver archiver;
        if (const int code = loadArchiver(archiver)) return code;
        LogFiles found = findLogFiles(archiver, LogPlaces::kArchives);
        archives = std::move(found.files);
        int code = 0;
        for (const std::string& note : found.notes)
            code = complain(1, note);
        return code;
    }
    int code = 0;
    for (const std::string& path : paths) {
        if (auto file = logFileAt(path)) {
            archives.push_back(std::move(*file));
        } else {
            code = complain(errno == EACCES ? EX_NOPERM : EX_NOINPUT, path + ": " + std::strerror(errno));
        }
    }
    return code;
}

class Report {
public:
    explicit Report(bool asJson) : asJson_(asJson) {
        if (asJson_) findings_.beginArray();
    }

    void add(const std::string& path, const ArchiveFinding& finding) {
        if (finding.state == ArchiveFinding::State::kWrong) isWrong_ = true;
        if (finding.state == ArchiveFinding::State::kUnknown) isUnknown_ = true;
        if (asJson_) {
            addJson(path, finding);
        } else {
            const std::string advice = finding.advice.empty() ? "" : "; " + finding.advice;
            const std::string line = path + (finding.isGood() ? ": good: " : ": BAD: ") + finding.what + advice;
            written_ = say(escapeForLine(line) + "\n") && std::fflush(stdout) == 0 && written_;
        }
    }

    /// `code` is that of what could not be looked at.
    int end(int code) {
        if (code == 0) code = isWrong_ ? EX_DATAERR : isUnknown_ ? 1 : 0;
        if (asJson_) {
            std::string list = findings_.endArray().takeLine();
            list.pop_back();
            written_ =
                say(std::string("{\"ok\":") + (code == 0 ? "true" : "false") + ",\"findings\":" + list + "}\n");
        }
        return endOfOutput(written_, code);
    }
    [[nodiscard]] bool isWritten() const { return written_; }

private:
    void addJson(const std::string& path, const ArchiveFinding& finding) {
        findings_.beginObject()
            .member("name", path)
            .member("ok", finding.isGood())
            .member("what", finding.what)
            .member("advice", finding.advice)
            .endObject();
    }

    bool asJson_;
    JsonWriter findings_;
    bool isWrong_ = false;
    bool isUnknown_ = false;
    bool written_ = true;
};

}  // namespace

int verifyArchives(const Context& context, const std::vector<std::string>& paths) {
    std::vector<LogFile> archives;
    const int code = collect(paths, archives);
    if (code != 0 && archives.empty()) return code;
    unsigned long long total = 0;
    for (const LogFile& archive : archives)
        total += archive.bytes;
    Report report(context.json);
    Progress progress(context.err, "verifying", "");
    unsigned long long done = 0;
    for (const LogFile& archive : archives) {
        progress.show(done, total);
        unsigned long long ofThis = 0;
        const ArchiveFinding finding = checkArchive(archive, [&](long long bytes) {
            ofThis += static_cast<unsigned long long>(bytes);
            progress.show(done + std::min(ofThis, archive.bytes), total);
        });
        done += archive.bytes;
        progress.clear();
        report.add(archive.path, finding);
        if (!report.isWritten()) break;
    }
    progress.clear();
    return report.end(code);
}

}  // namespace ombrel
