// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Whole databases into one file, one behind the other.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "tools/ombrel/log_files.h"
#include "tools/ombrel/output_file.h"
#include "tools/ombrel/progress.h"

namespace ombrel {

enum class ExportFormat { kText, kCsv, kNdjson };

struct ExportEnd {
    int exitCode = 0;
    std::string error;  ///< what went wrong
    unsigned long long rows = 0;

    static ExportEnd failed(int exitCode, const std::string& error) { return {exitCode, error, 0}; }
};

/// In bytes of the databases, which is what is known beforehand.
class ExportProgress {
public:
    ExportProgress(Progress& line, unsigned long long total) : line_(line), total_(total) {}
    /// So much of the database at hand, as a share or in bytes of about the same measure.
    void showShare(double share) { line_.show(before_ + static_cast<unsigned long long>(share * size()), total_); }
    void showBytes(unsigned long long bytes) { line_.show(before_ + std::min(bytes, bytes_), total_); }
    void begin(unsigned long long bytes) { bytes_ = bytes; }
    void end() {
        before_ += bytes_;
        line_.show(before_, total_);
    }

private:
    [[nodiscard]] double size() const { return static_cast<double>(bytes_); }

    Progress& line_;
    unsigned long long total_;
    unsigned long long before_ = 0;
    unsigned long long bytes_ = 0;
};

/// How much room the export of such databases takes at most, by experience.
unsigned long long roomFor(const std::vector<LogFile>& files, ExportFormat format);

/// Stops at the first one that cannot be exported.
ExportEnd exportDatabases(const std::vector<LogFile>& files, ExportFormat format, OutputFile& output,
                          Progress& progress);

}  // namespace ombrel
