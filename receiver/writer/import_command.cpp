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

class Import {
public:
    Import(const ImportOptions& options, Source& source, DatabasePool& pool)
        : options_(options),
          source_(source),
          pool_(pool),
          progress_(source.size),
          years_(options.year ? *options.year : guessFirstYear(source)),
          reference_(source.lastChange) {
        batch_.receiver = kSender;
        // Names the lines of this import, so that a transaction that is tried again doubles nothing.
        (void)!::getrandom(&importId_, sizeof importId_, 0);
    }

    int run() {
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
        return report(lines, stored);
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

    int report(const FileLines& lines, bool stored) {
        if (!stored) {
            logLine("ombrel-logwriter: " + error_ + "; stopped after " + std::to_string(rows_) + " messages");
            return EX_IOERR;
        }
        if (lines.error() != 0) {
            logLine("ombrel-logwriter: cannot read " + options_.file + ": " + std::strerror(lines.error()) +
                    "; stopped after " + std::to_string(rows_) + " messages");
            return EX_IOERR;
        }
        if (lines.splitLines() > 0) {
            logLine(std::to_string(lines.splitLines()) + " lines of more than 1 MiB were split");
        }
        std::array<char, 64> duration{};
        (void)std::snprintf(duration.data(), duration.size(), " messages imported in %.1f s", progress_.seconds());
        logLine(std::to_string(rows_) + duration.data());
        return EX_OK;
    }

    const ImportOptions& options_;
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
    Source source;
    if (!openSource(options.file, source)) {
        logLine("ombrel-logwriter: cannot read " + options.file + ": " + std::strerror(errno));
        return EX_NOINPUT;
    }
    DatabasePool pool(settings->archiveFolder, settings->byDevice, *schema);
    return Import(options, source, pool).run();
}

}  // namespace ombrel
