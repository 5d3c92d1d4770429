// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/export_databases.h"

#include <sysexits.h>

#include <cerrno>
#include <cstring>

#include "ombrel/logarchiver.h"
#include "tools/ombrel/export_text.h"
#include "tools/ombrel/held_database.h"
#include "tools/ombrel/row_format.h"
#include "tools/ombrel/search_zip.h"
#include "tools/ombrel/stop_signals.h"

namespace ombrel {

namespace {

constexpr std::size_t kBufferBytes = 256UL << 10;
constexpr unsigned long long kPacking = 10;           // how much smaller a ZIP file makes a database, about
constexpr unsigned long long kReserve = 16ULL << 20;  // the log writer goes on meanwhile

ExportEnd cannotWrite() {
    if (stopAsked()) return ExportEnd::failed(1, "stopped");
    return ExportEnd::failed(EX_IOERR, std::string("cannot write: ") + std::strerror(errno));
}

/// Rows of one database, oldest first, behind what is in the output.
class RowExport {
public:
    RowExport(RowFormat format, OutputFile& output) : format_(format), output_(output) {}

    ExportEnd run(const std::string& path, ExportProgress& progress) {
        HeldDatabase database(path, everything_);
        if (!database.open())
            return ExportEnd::failed(errno == EACCES ? EX_NOPERM : EX_NOINPUT, path + ": " + std::strerror(errno));
        const long long total = LogArchiver().DBCountGet(path);
        for (;;) {
            const auto end = database.read([this](LogRow& row) { return take(row); }, 1);
            if (end == LogReader::End::kFailed) return ExportEnd::failed(EX_DATAERR, database.error());
            if (!isWritten_) return cannotWrite();
            if (stopAsked()) return ExportEnd::failed(1, "stopped");
            if (end == LogReader::End::kEnd) break;
            if (total > 0) {
                const double share = static_cast<double>(database.rowsPassed()) / static_cast<double>(total);
                progress.showShare(std::min(share, 1.0));
            }
        }
        if (!flush()) return cannotWrite();
        return {0, "", rows_};
    }

private:
    bool take(const LogRow& row) {
        ++rows_;
        buffer_ += rowLine(row, format_, Terminal());
        return buffer_.size() < kBufferBytes || flush();
    }

    bool flush() {
        isWritten_ = output_.write(buffer_);
        buffer_.clear();
        return isWritten_;
    }

    const LogFilter everything_;
    RowFormat format_;
    OutputFile& output_;
    std::string buffer_;
    bool isWritten_ = true;
    unsigned long long rows_ = 0;
};

ExportEnd exportOne(const std::string& path, ExportFormat format, OutputFile& output, ExportProgress& progress) {
    if (format == ExportFormat::kText) return exportText(path, output, progress);
    return RowExport(format == ExportFormat::kCsv ? RowFormat::kCsv : RowFormat::kJson, output)
        .run(path, progress);
}

/// All databases of a ZIP file, in the order in which they lie in it.
ExportEnd exportZip(const std::string& path, ExportFormat format, OutputFile& output, ExportProgress& progress) {
    ZipScratch scratch;
    ExportEnd all;
    for (std::size_t number = 0;; ++number) {
        const Unpacked unpacked = scratch.unpack(path, number, [] { return !stopAsked(); });
        if (stopAsked()) return ExportEnd::failed(1, "stopped");
        if (!unpacked.error.empty()) return ExportEnd::failed(EX_DATAERR, unpacked.error);
        if (unpacked.path == nullptr) return all;
        const ExportEnd one = exportOne(*unpacked.path, format, output, progress);
        if (one.exitCode != 0) return ExportEnd::failed(one.exitCode, path + ": " + one.error);
        all.rows += one.rows;
        if (unpacked.isLast) return all;
    }
}

}  // namespace

// Indexes and free pages on one side, names and times on the other: a text is about as large as its database.
unsigned long long roomFor(const std::vector<LogFile>& files, ExportFormat format) {
    unsigned long long bytes = 0;
    unsigned long long largest = 0;
    for (const LogFile& file : files) {
        const unsigned long long unpacked = file.bytes * (file.kind == LogFile::Kind::kZip ? kPacking : 1);
        bytes += unpacked;
        largest = std::max(largest, unpacked);
    }
    if (format == ExportFormat::kNdjson) return bytes * 3 + kReserve;
    return (format == ExportFormat::kCsv ? bytes / 2 * 3 : bytes + largest) + kReserve;
}

ExportEnd exportDatabases(const std::vector<LogFile>& files, ExportFormat format, OutputFile& output,
                          Progress& progress) {
    unsigned long long total = 0;
    for (const LogFile& file : files)
        total += file.bytes;
    ExportProgress overall(progress, total);
    ExportEnd all;
    if (format == ExportFormat::kCsv && !output.write(csvHead())) return cannotWrite();
    for (const LogFile& file : files) {
        overall.begin(file.bytes);
        const bool isZip = file.kind == LogFile::Kind::kZip;
        ExportEnd one =
            isZip ? exportZip(file.path, format, output, overall) : exportOne(file.path, format, output, overall);
        if (one.exitCode != 0) return one;
        overall.end();
        all.rows += one.rows;
    }
    return all;
}

}  // namespace ombrel
