// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// One file that is searched, newest row first, also when it is archived or put into a ZIP file meanwhile. Belongs
// to one thread at a time.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/ombrel/log_files.h"
#include "tools/ombrel/log_filter.h"
#include "tools/ombrel/log_reader.h"
#include "tools/ombrel/search_zip.h"

namespace ombrel {

/// How many rows are to be read at once, and how many bytes.
struct SearchRoom {
    std::size_t rows = 0;
    std::size_t bytes = 0;
};

/// What the sources of one search share. Safe for several threads.
struct SearchWorld {
    const LogFilter& filter;
    ZipScratch& scratch;
    /// Where a file that was archived is now; nothing when it cannot be told.
    std::function<std::optional<std::string>(const LogReader::Identity&)> findArchived;
    /// Whether a file was there when the search began.
    std::function<bool(const std::string& path)> wasThere;
    std::atomic<bool> isStopped = false;
};

class SearchSource {
public:
    SearchSource(LogFile file, SearchWorld& world);

    enum class Step {
        kMore,
        kEnd,
        kFailed,  ///< `error()` says why
    };
    /// Reads one stretch and appends what is wanted to `rows`.
    Step run(const SearchRoom& room, std::vector<LogRow>& rows);

    /// No row is newer than this: the end of the last day of its name. LLONG_MAX when nothing is known.
    [[nodiscard]] long long newest() const { return newest_; }
    /// Whether the next step takes a database out of a ZIP file first.
    [[nodiscard]] bool needsUnpacking() const { return isZip_ && unpacked_.path == nullptr; }
    /// The size of what was taken out of a ZIP file and still lies there.
    [[nodiscard]] unsigned long long unpackedBytes() const { return unpacked_.path ? unpacked_.bytes : 0; }
    /// Takes that away; the next step takes it out anew.
    void putAway();
    [[nodiscard]] const std::string& error() const { return error_; }
    [[nodiscard]] unsigned long long bytes() const { return bytes_; }
    /// How much of it is behind us, 0 to 1.
    [[nodiscard]] double share() const;
    [[nodiscard]] unsigned long long rowsPassed() const;

private:
    bool begin();
    void open(const std::string& path);
    Step leaveDatabase();
    Step follow();
    Step fail(const std::string& error);
    [[nodiscard]] std::optional<std::string> zippedTwin() const;

    SearchWorld& world_;
    std::string path_;
    bool isWorking_ = false;
    bool isZip_ = false;
    unsigned long long bytes_ = 0;
    long long newest_ = 0;
    Unpacked unpacked_;
    std::size_t entry_ = 0;  // of the databases in a ZIP file
    std::unique_ptr<LogReader> reader_;
    std::optional<long long> nextId_;  // where to go on
    unsigned long long passed_ = 0;    // by readers that are no more
    int moves_ = 0;
    std::string error_;
};

}  // namespace ombrel
