// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/search_engine.h"

#include <algorithm>
#include <system_error>

namespace ombrel {

namespace {

// Of all files together; each has its share of them, and a few rows at least.
constexpr std::size_t kRowsAhead = 65'536;
constexpr std::size_t kBytesAhead = 32UL << 20;
// ZIP files that may be unpacked at once beside those whose turn it is.
constexpr int kMostUnpacked = 2;
// What may lie unpacked before files that are waited for take each other's place.
constexpr unsigned long long kUnpackedBytes = 1ULL << 30;

SearchRoom roomFor(std::size_t files) {
    const std::size_t shares = std::max<std::size_t>(files, 1);
    return {std::clamp<std::size_t>(kRowsAhead / shares, 8, 1'024),
            std::clamp<std::size_t>(kBytesAhead / shares, 16UL << 10, 1UL << 20)};
}

}  // namespace

SearchEngine::SearchEngine(SearchWorld& world, std::vector<LogFile> files, unsigned workers)
    : world_(world), room_(roomFor(files.size())) {
    for (LogFile& file : files) {
        Slot slot;
        slot.source = std::make_unique<SearchSource>(std::move(file), world);
        slots_.push_back(std::move(slot));
    }
    std::stable_sort(slots_.begin(), slots_.end(),
                     [](const Slot& a, const Slot& b) { return a.source->newest() > b.source->newest(); });
    for (std::size_t i = 0; i < slots_.size(); ++i)
        pending_.insert(placeOf(slots_[i].source->newest(), i));
    const std::size_t wanted = std::min<std::size_t>(workers, slots_.size());
    try {
        for (std::size_t i = 0; i < wanted; ++i)
            workers_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        if (workers_.empty()) throw;  // with one of them it takes longer
    }
}

SearchEngine::~SearchEngine() {
    stop();
    for (std::thread& worker : workers_)
        worker.join();
}

void SearchEngine::stop() {
    const std::lock_guard lock(mutex_);
    world_.isStopped = true;
    news_.notify_all();
    work_.notify_all();
}

/// Whether the first of all heads is newer than whatever may come from files that have shown none.
bool SearchEngine::hasNext() const {
    return !heads_.empty() && (pending_.empty() || pending_.begin()->first < heads_.begin()->first);
}

bool SearchEngine::isOver() const {
    return world_.isStopped || (heads_.empty() && pending_.empty());
}

bool SearchEngine::isLow(const Slot& slot) const {
    return !slot.isDone && !slot.isRunning && slot.rows.size() <= room_.rows / 2;
}

LogRow SearchEngine::takeNext() {
    const std::size_t index = slotOf(*heads_.begin());
    Slot& slot = slots_[index];
    heads_.erase(heads_.begin());
    LogRow row = std::move(slot.rows.front());
    slot.rows.pop_front();
    --rowsAhead_;
    if (!slot.rows.empty()) {
        heads_.insert(placeOf(slot.rows.front().time, index));
    } else if (!slot.isDone) {
        pending_.insert(placeOf(slot.source->newest(), index));
    }
    return row;
}

SearchEngine::News SearchEngine::next(std::size_t most, std::chrono::milliseconds patience) {
    News news;
    std::unique_lock lock(mutex_);
    news_.wait_for(lock, patience, [this] { return hasNext() || isOver() || !errors_.empty(); });
    while (news.rows.size() < most && hasNext() && !world_.isStopped)
        news.rows.push_back(takeNext());
    news.errors.swap(errors_);
    news.isEnd = isOver();
    if (!news.rows.empty()) work_.notify_all();
    return news;
}

SearchEngine::Extent SearchEngine::extent() {
    const std::lock_guard lock(mutex_);
    Extent extent;
    for (const Slot& slot : slots_) {
        const unsigned long long bytes = slot.source->bytes();
        extent.total += bytes;
        extent.done += static_cast<unsigned long long>(static_cast<double>(bytes) * slot.share);
    }
    return extent;
}

// What lies unpacked is bounded. Files that are waited for must go on; then another one is put away, to be
// unpacked again when its rows are used up.
bool SearchEngine::makeRoomToUnpack(std::size_t index, bool isWaitedFor) {
    if (!slots_[index].source->needsUnpacking()) return true;
    int unpacked = 0;
    unsigned long long bytes = 0;
    Slot* idle = nullptr;
    for (Slot& slot : slots_) {
        if (slot.unpacked == 0) continue;
        ++unpacked;
        bytes += slot.unpacked;
        if (!slot.isRunning) idle = &slot;
    }
    if (!isWaitedFor) return unpacked < kMostUnpacked;
    if (unpacked >= kMostUnpacked && bytes > kUnpackedBytes && idle != nullptr) {
        idle->source->putAway();
        idle->unpacked = 0;
    }
    return true;
}

/// A file for a worker: one that is waited for, or else one of which something can be read ahead.
std::optional<std::size_t> SearchEngine::pick() {
    for (const Place& place : pending_) {
        if (!heads_.empty() && place.first < heads_.begin()->first) break;
        const std::size_t index = slotOf(place);
        if (!slots_[index].isRunning && makeRoomToUnpack(index, true)) return index;
    }
    if (rowsAhead_ >= kRowsAhead) return std::nullopt;
    for (std::size_t i = 0; i < slots_.size(); ++i) {
        if (isLow(slots_[i]) && makeRoomToUnpack(i, false)) return i;
    }
    return std::nullopt;
}

void SearchEngine::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        std::optional<std::size_t> index;
        work_.wait(lock, [&] { return world_.isStopped || isOver() || (index = pick()); });
        if (world_.isStopped || !index) return;
        Slot& slot = slots_[*index];
        slot.isRunning = true;
        if (slot.source->needsUnpacking()) slot.unpacked = std::max(slot.source->bytes(), 1ULL);  // more by then
        lock.unlock();
        std::vector<LogRow> rows;
        SearchSource::Step step = SearchSource::Step::kFailed;
        try {
            step = slot.source->run(room_, rows);
        } catch (const std::bad_alloc&) {
            rows.clear();
        }
        lock.lock();
        settle(*index, step, std::move(rows));
    }
}

/// Takes over what a worker has read.
void SearchEngine::settle(std::size_t index, SearchSource::Step step, std::vector<LogRow> rows) {
    Slot& slot = slots_[index];
    slot.isRunning = false;
    slot.isDone = step != SearchSource::Step::kMore;
    slot.unpacked = slot.isDone ? 0 : slot.source->unpackedBytes();
    slot.share = slot.isDone ? 1 : slot.source->share();
    if (slot.rows.empty()) {
        pending_.erase(placeOf(slot.source->newest(), index));
        if (!rows.empty()) {
            heads_.insert(placeOf(rows.front().time, index));
        } else if (!slot.isDone) {
            pending_.insert(placeOf(slot.source->newest(), index));
        }
    }
    rowsAhead_ += rows.size();
    std::move(rows.begin(), rows.end(), std::back_inserter(slot.rows));
    if (step == SearchSource::Step::kFailed) {
        errors_.push_back(slot.source->error().empty() ? "out of memory" : slot.source->error());
    }
    if (hasNext() || isOver() || !errors_.empty()) news_.notify_one();
    work_.notify_all();
}

}  // namespace ombrel
