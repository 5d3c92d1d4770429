// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/export_text.h"

#include <sysexits.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "linux/common/error_record.h"
#include "ombrel/postprocessor.h"
#include "platform/veskcore.h"
#include "platform/vesksyslog.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/held_file.h"
#include "tools/ombrel/open_scratch.h"
#include "tools/ombrel/stop_signals.h"

namespace ombrel {

namespace {

constexpr int kMostTries = 20;

struct TextResult {
    int result = -1;
    int code = 0;  // of the error record of that thread
};

/// The export runs in a thread of its own: this one shows how far it is, and ends it when it is asked to.
class TextThread {
public:
    TextThread(const std::string& database, const std::string& out)
        : thread_([this, database, out] { run(database, out); }) {}
    TextThread(const TextThread&) = delete;
    TextThread& operator=(const TextThread&) = delete;
    ~TextThread() {
        thread_.join();
        if (scratch_ && result_.result < 0) removeScratch(scratch_->path);
    }

    TextResult wait(ExportProgress& progress) {
        constexpr auto kBetween = std::chrono::milliseconds(50);
        bool isEnded = false;
        std::unique_lock lock(mutex_);
        while (!done_.wait_for(lock, kBetween, [this] { return isDone_; })) {
            if (const auto scratch = openScratch()) scratch_ = scratch;
            progress.showBytes(scratch_ ? scratch_->bytes : 0);
            if (stopAsked() && !isEnded) {
                isEnded = true;
                failAllWrites(true);
            }
        }
        if (isEnded) failAllWrites(false);
        return result_;
    }

private:
    void run(const std::string& database, const std::string& out) {
        TextResult result;
        try {
            PostProcessor processor;
            VLIBCErrSetEx(0, "", 0);
            result.result = processor.DB2TXT(database, out);
            result.code = VLIBCErrGet();
        } catch (const std::exception&) {
            result.code = kErrorOutOfMemory;
        }
        const std::lock_guard lock(mutex_);
        result_ = result;
        isDone_ = true;
        done_.notify_one();
    }

    std::mutex mutex_;
    std::condition_variable done_;
    bool isDone_ = false;
    TextResult result_;
    std::optional<OpenScratch> scratch_;
    std::thread thread_;  // begins when all the others are there
};

std::string whyNot(const std::string& path, const TextResult& text) {
    const std::string why = errorText(text.code);
    return path + " could not be exported" + (why.empty() ? "" : ": " + why) +
           "; the text is built in the scratch folder of its volume, where --format csv needs none";
}

/// Exports the file of that name. Nothing: it was given another name meanwhile.
std::optional<ExportEnd> tryOnce(const std::string& name, const HeldFile& held, OutputFile& output,
                                 ExportProgress& progress) {
    std::string database = name;
    std::list<_SYSLOG_SQL_COND_tag> allRows;
    const int rows = SyslogDBSelectCount(database, allRows, nullptr, nullptr);
    if (rows < 0) {
        if (!held.isAt(name)) return std::nullopt;
        return ExportEnd::failed(EX_DATAERR, name + " cannot be read as a log database");
    }
    const std::string part = output.nameBeside();
    const TextResult text = TextThread(name, part).wait(progress);
    if (stopAsked()) {
        removeScratch(part);
        return ExportEnd::failed(1, "stopped");
    }
    if (!held.isAt(name)) {
        removeScratch(part);
        return std::nullopt;
    }
    if (text.result < 0) {
        removeScratch(part);
        return ExportEnd::failed(text.code == fromErrno(EACCES) ? EX_NOPERM : EX_IOERR, whyNot(name, text));
    }
    if (!output.takeFile(part))
        return ExportEnd::failed(EX_IOERR, std::string("cannot write: ") + std::strerror(errno));
    return ExportEnd{0, "", static_cast<unsigned long long>(rows)};
}

}  // namespace

// The pages of one database are asked for by its path: of one that is archived meanwhile it is begun again under
// the new name.
ExportEnd exportText(const std::string& path, OutputFile& output, ExportProgress& progress) {
    const std::string absolute = std::filesystem::absolute(path);
    HeldFile held;
    if (!held.open(absolute)) return ExportEnd::failed(EX_NOINPUT, path + ": " + std::strerror(errno));
    for (int tries = 0; tries < kMostTries; ++tries) {
        const HeldFile::Name name = held.name();
        if (name.isRemoved) break;
        const std::string now = held.isAt(absolute) ? absolute : name.path;
        if (const auto end = tryOnce(now, held, output, progress)) return *end;
    }
    return ExportEnd::failed(EX_NOINPUT, path + ": it was moved away or packed meanwhile");
}

}  // namespace ombrel
