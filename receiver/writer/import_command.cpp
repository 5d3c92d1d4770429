// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/import_command.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <utility>

#include "linux/common/fd.h"
#include "linux/common/text_escape.h"
#include "receiver/store/database_pool.h"
#include "receiver/store/row_builder.h"
#include "receiver/visible_log.h"
#include "receiver/writer/file_lines.h"
#include "receiver/writer/import_progress.h"
#include "receiver/writer/log_writer.h"
#include "receiver/writer/writer_settings.h"
#include "receiver/writer/year_tracker.h"

namespace ombrel {

namespace {

constexpr size_t kRowsATransaction = 10'000;
constexpr size_t kBytesATransaction = 32U << 20;
constexpr int kTries = 10;  // each waits up to two seconds for the log writer or a mover
constexpr const char* kSender = "import";

struct Source {
    Fd opened;
    int fd = STDIN_FILENO;
    std::int64_t lastChange = 0;
    unsigned long long size = 0;
    bool regular = false;
};

int yearOf(std::int64_t seconds) {
    const time_t value = seconds;
    struct tm local {};
    return ::localtime_r(&value, &local) != nullptr ? local.tm_year + 1900 : 1970;
}

bool openSource(const std::string& file, Source& source) {
    source.lastChange = ::time(nullptr);
    if (file == "-") return true;
    source.opened.reset(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!source.opened || ::fstat(source.opened.get(), &status) != 0) return false;
    if (S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return false;
    }
    source.fd = source.opened.get();
    source.regular = S_ISREG(status.st_mode);
    if (source.regular) {
        source.lastChange = status.st_mtime;
        source.size = static_cast<unsigned long long>(status.st_size);
    }
    return true;
}

// The last line was written about when the file was changed last; every New Year in between takes one off. A
// stream can be read only once: its first line is taken to be of this year.
int guessFirstYear(const Source& source) {
    const int lastYear = yearOf(source.lastChange);
    if (!source.regular) return lastYear;
    FileLines lines(source.fd);
    YearTracker tracker(0);
    std::string_view line;
    while (lines.next(line)) {
        const ParsedMessage parsed = parseMessage(line);
        if (parsed.time && !parsed.time->year) (void)tracker.next(parsed.time->month);
    }
    return ::lseek(source.fd, 0, SEEK_SET) == 0 ? lastYear - tracker.year() : lastYear;
}

struct ImportResult {
    int exitCode = EX_OK;
    unsigned long long rows = 0;
    unsigned long long splitLines = 0;
    double seconds = 0;
    std::string error;
};

class Import {
public:
    Import(const ImportOptions& options, const std::string& file, Source& source, DatabasePool& pool)
        : options_(options),
          file_(file),
          source_(source),
          pool_(pool),
          progress_(source.size),
          years_(options.year ? *options.year : guessFirstYear(source)),
          reference_(source.lastChange) {
        batch_.receiver = kSender;
        // Names the lines of this import, so that a transaction that is tried again doubles nothing.
        (void)!::getrandom(&importId_, sizeof importId_, 0);
    }

    ImportResult run() {
        FileLines lines(source_.fd);
        std::string_view line;
        bool stored = true;
        while (stored && lines.next(line)) {
            addLine(line);
            progress_.show(lines.bytesRead(), rows_);
            if (batch_.rows.size() >= kRowsATransaction || bytes_ >= kBytesATransaction) stored = store();
        }
        if (stored) stored = store();
        progress_.end();
        return result(lines, stored);
    }

private:
    void addLine(std::string_view line) {
        const std::string& text = kept_.emplace_back(line);
        auto year = std::optional<int>();
        if (const ParsedMessage parsed = parseMessage(text); parsed.time && !parsed.time->year) {
            year = years_.next(parsed.time->month);
        }
        auto row = builder_.imported(text, options_.host, reference_, year, now_);
        if (!row) return kept_.pop_back();  // a file of empty lines must not fill the memory
        bytes_ += text.size();
        row->id = {importId_, ++lineNumber_};
        reference_ = row->time;
        batch_.rows.push_back(*row);
    }

    bool store() {
        StoreOutcome outcome;
        const std::vector<RowBatch> batches = {std::move(batch_)};
        for (int left = kTries; left > 0 && !outcome.stored; --left) {
            outcome = pool_.store(batches, clock_);
            if (!outcome.notice.empty()) logLine(outcome.notice);
        }
        batch_ = {kSender, {}};
        if (!outcome.stored) {
            error_ = outcome.error;
            return false;
        }
        rows_ += batches.front().rows.size();
        builder_.clear();
        kept_.clear();
        bytes_ = 0;
        return true;
    }

    ImportResult result(const FileLines& lines, bool stored) {
        ImportResult result{EX_OK, rows_, lines.splitLines(), progress_.seconds(), {}};
        if (!stored) {
            result.error = error_;
        } else if (lines.error() != 0) {
            result.error = "cannot read " + file_ + ": " + std::strerror(lines.error());
        }
        if (!result.error.empty()) result.exitCode = EX_IOERR;
        return result;
    }

    const ImportOptions& options_;
    const std::string& file_;
    Source& source_;
    DatabasePool& pool_;
    LocalClock clock_;
    RowBuilder builder_{clock_};
    ImportProgress progress_;
    YearTracker years_;
    std::int64_t reference_;
    std::int64_t now_ = ::time(nullptr);
    RowBatch batch_;
    std::deque<std::string> kept_;
    size_t bytes_ = 0;
    std::uint32_t importId_ = 0;
    std::uint64_t lineNumber_ = 0;
    unsigned long long rows_ = 0;
    std::string error_;
};

std::string secondsText(double seconds, const char* format) {
    std::array<char, 64> text{};
    (void)std::snprintf(text.data(), text.size(), format, seconds);
    return text.data();
}

ImportResult importFile(const ImportOptions& options, const std::string& file, DatabasePool& pool) {
    Source source;
    if (openSource(file, source)) return Import(options, file, source, pool).run();
    ImportResult result;
    result.exitCode = EX_NOINPUT;
    result.error = "cannot read " + file + ": " + std::strerror(errno);
    return result;
}

bool sayJson(const std::string& file, const ImportResult& result) {
    const std::string line =
        "{\"file\":" + quoteJson(file) + ",\"ok\":" + (result.exitCode == EX_OK ? "true" : "false") +
        ",\"rows\":" + std::to_string(result.rows) + ",\"split_lines\":" + std::to_string(result.splitLines) +
        ",\"duration_seconds\":" + secondsText(result.seconds, "%.3f") +
        ",\"error\":" + (result.error.empty() ? "null" : quoteJson(result.error)) + "}\n";
    return std::fputs(line.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
}

void saySummary(const ImportOptions& options, const std::string& file, const ImportResult& result) {
    const std::string name = options.files.size() > 1 ? file + ": " : "";
    if (result.splitLines > 0) {
        logLine(name + std::to_string(result.splitLines) + " lines of more than 1 MiB were split");
    }
    logLine(name + std::to_string(result.rows) + " messages imported in " + secondsText(result.seconds, "%.1f s"));
}

/// False when the answer cannot be written.
bool report(const ImportOptions& options, const std::string& file, const ImportResult& result) {
    if (result.exitCode == EX_IOERR) {
        logLine("ombrel-logwriter: " + result.error + "; stopped after " + std::to_string(result.rows) +
                " messages");
    } else if (result.exitCode != EX_OK) {
        logLine("ombrel-logwriter: " + result.error);
    }
    if (options.json) return sayJson(file, result);
    if (result.exitCode == EX_OK) saySummary(options, file, result);
    return true;
}

}  // namespace

int importCommand(const ImportOptions& options) {
    std::string error;
    const auto settings = readWriterSettings(options.settingsFile, error);
    if (!settings) {
        logLine("ombrel-logwriter: " + error);
        return EX_CONFIG;
    }
    const auto schema = readSmallFile(options.schemaFile);
    if (!schema) {
        logLine("ombrel-logwriter: cannot read the layout of log databases " + options.schemaFile + ": " +
                std::strerror(errno));
        return EX_OSFILE;
    }
    DatabasePool pool(settings->archiveFolder, settings->byDevice, *schema);
    int exitCode = EX_OK;
    for (const std::string& file : options.files) {
        const ImportResult result = importFile(options, file, pool);
        const bool isSaid = report(options, file, result);
        if (exitCode == EX_OK) exitCode = isSaid ? result.exitCode : EX_IOERR;
    }
    return exitCode;
}

}  // namespace ombrel
