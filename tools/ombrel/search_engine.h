// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reads several files side by side and puts their rows in one order, newest first. What is read ahead is bounded,
// however many files there are: a file that is not at its turn is left, by the id that it came to, and no thread
// waits for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tools/ombrel/search_source.h"

namespace ombrel {

class SearchEngine {
public:
    /// The world has to stay as long as the engine; the sources belong to it.
    SearchEngine(SearchWorld& world, std::vector<LogFile> files, unsigned workers);
    /// Waits for what is at work: a stretch of rows each.
    ~SearchEngine();
    SearchEngine(const SearchEngine&) = delete;
    SearchEngine& operator=(const SearchEngine&) = delete;

    struct News {
        std::vector<LogRow> rows;
        std::vector<std::string> errors;  ///< of files that could not be read, or not to their ends
        bool isEnd = false;
    };
    /// What there is now, or what comes within `patience`; at most `most` rows.
    News next(std::size_t most, std::chrono::milliseconds patience);
    /// From now on nothing more is read. Safe from any thread.
    void stop();

    /// Bytes of files, as near as can be told.
    struct Extent {
        unsigned long long done = 0;
        unsigned long long total = 0;
    };
    Extent extent();

private:
    struct Slot {
        std::unique_ptr<SearchSource> source;
        std::deque<LogRow> rows;
        bool isRunning = false;
        bool isDone = false;
        unsigned long long unpacked = 0;  // bytes that lie or will lie unpacked
        double share = 0;
    };
    /// A time and which slot has it, the newest first; of equal ones the slot that was told first.
    using Place = std::pair<long long, long long>;
    using Places = std::set<Place, std::greater<>>;

    [[nodiscard]] Place placeOf(long long time, std::size_t slot) const {
        return {time, -static_cast<long long>(slot)};
    }
    [[nodiscard]] static std::size_t slotOf(const Place& place) { return static_cast<std::size_t>(-place.second); }
    [[nodiscard]] bool hasNext() const;
    [[nodiscard]] bool isOver() const;
    LogRow takeNext();
    [[nodiscard]] bool isLow(const Slot& slot) const;
    std::optional<std::size_t> pick();
    bool makeRoomToUnpack(std::size_t index, bool isWaitedFor);
    void work();
    void settle(std::size_t index, SearchSource::Step step, std::vector<LogRow> rows);

    SearchWorld& world_;
    SearchRoom room_;
    std::vector<Slot> slots_;
    std::mutex mutex_;
    std::condition_variable news_;  // for who takes the rows
    std::condition_variable work_;  // for the workers
    Places heads_;                  // slots with rows: the time of the first one
    Places pending_;                // slots without rows that may have some yet: how new they may be
    std::size_t rowsAhead_ = 0;
    std::vector<std::string> errors_;
    std::vector<std::thread> workers_;
};

}  // namespace ombrel
