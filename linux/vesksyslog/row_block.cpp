// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/row_block.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include "linux/common/error_record.h"
#include "linux/vesksyslog/row_decode.h"

namespace ombrel {

namespace {

// Below this a second thread costs more than it saves.
constexpr long long kReadAheadRows = 2000;
// Ten thousand rows, the page of an export: the reader is done with them before their callbacks are, and from then
// on no second thread makes each system call of the callbacks dearer.
constexpr long long kMostRows = 10'240;

size_t blocksFor(long long mostRows) {
    constexpr long long kBlockRows = RowBlock::kRows;
    const long long rows = mostRows < 0 ? kMostRows : std::min(mostRows, kMostRows);
    return static_cast<size_t>((rows + kBlockRows - 1) / kBlockRows);
}

/// Blocks in turn: the reader fills them, the caller's thread empties them in the same order.
class BlockRing {
public:
    explicit BlockRing(size_t blocks) : blocks_(blocks) {}
    [[nodiscard]] size_t size() const { return blocks_.size(); }
    /// For another pair of threads; the records keep their memory.
    void reset() {
        filled_ = 0;
        full_ = 0;
        stopped_ = false;
    }

    /// Null when the other side has stopped.
    RowBlock* waitForEmpty() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stopped_ || full_ < blocks_.size(); });
        return stopped_ ? nullptr : &blocks_[filled_ % blocks_.size()];
    }
    void passFull() {
        const std::lock_guard lock(mutex_);
        ++filled_;
        ++full_;
        changed_.notify_one();
    }
    RowBlock& waitForFull() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return full_ > 0; });
        return blocks_[(filled_ - full_) % blocks_.size()];
    }
    void passEmpty() {
        const std::lock_guard lock(mutex_);
        --full_;
        changed_.notify_one();
    }
    void stop() {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        changed_.notify_one();
    }

private:
    std::vector<RowBlock> blocks_;
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t filled_ = 0;
    size_t full_ = 0;
    bool stopped_ = false;
};

/// From one page of a walk to the next on the same thread: to make the records anew takes as long as to fill them.
thread_local std::unique_ptr<BlockRing> spareRing;

std::unique_ptr<BlockRing> takeRing(size_t blocks) {
    std::unique_ptr<BlockRing> ring = std::move(spareRing);
    if (!ring || ring->size() < blocks) return std::make_unique<BlockRing>(blocks);
    ring->reset();
    return ring;
}

/// The thread that reads ahead; over, whatever the callback does, before the statement is.
class ReadAhead {
public:
    ReadAhead(const Statement& statement, RowColumns columns, size_t blocks) : ring_(takeRing(blocks)) {
        // The signals of the program are for its own threads.
        sigset_t all;
        sigset_t before;
        (void)::sigfillset(&all);
        (void)::pthread_sigmask(SIG_SETMASK, &all, &before);  // fails only for an unknown first argument
        try {
            thread_ = std::thread([this, &statement, columns] { read(statement, columns); });
        } catch (const std::system_error&) {
            ring_.reset();  // no thread to be had: isRunning() tells
        }
        (void)::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    ~ReadAhead() {
        if (!thread_.joinable()) return;
        ring_->stop();
        thread_.join();
    }
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    [[nodiscard]] bool isRunning() const { return ring_ != nullptr; }
    BlockRing& ring() { return *ring_; }
    /// After the last block.
    void keepRing() {
        thread_.join();
        spareRing = std::move(ring_);
    }

private:
    void read(const Statement& statement, RowColumns columns) {
        while (RowBlock* block = ring_->waitForEmpty()) {
            fillBlock(statement, columns, *block);
            const bool isLast = block->isLast;  // the other side owns the block from the next line on
            ring_->passFull();
            if (isLast) return;
        }
    }

    std::unique_ptr<BlockRing> ring_;
    std::thread thread_;
};

// The rows lie in the cache of the other processor; the callback of this one leaves time to bring the next.
void fetchAhead(const _SYSLOG_LOG_DATA_tag& row) {
    constexpr size_t kCacheLine = 64;
    constexpr size_t kMostOfAMessage = 256;
    const auto* const record = reinterpret_cast<const char*>(&row);
    for (size_t at = 0; at < sizeof row; at += kCacheLine)
        __builtin_prefetch(record + at);
    const size_t size = std::min(row.message.size(), kMostOfAMessage);
    for (size_t at = 0; at < size; at += kCacheLine)
        __builtin_prefetch(row.message.data() + at);
}

// False when the callback has had enough.
bool deliverBlock(RowBlock& block, RowCallback callback, void* context, Delivered& delivered) {
    for (size_t i = 0; i < block.count; ++i) {
        if (i + 1 < block.count) fetchAhead(block.rows[i + 1]);
        if (callback(block.rows[i], context) < 0) return false;
    }
    if (block.count == 0) return true;
    delivered.rows += static_cast<long long>(block.count);
    delivered.lastId = block.lastId;
    delivered.lastTime = block.lastTime;
    return true;
}

int endOf(const RowBlock& block) {
    return block.code == 0 ? 0 : fail(fromSqlite(block.code));
}

int deliverInTurn(const Statement& statement, RowColumns columns, RowBlock& block, RowCallback callback,
                  void* context, Delivered& delivered) {
    while (!block.isLast) {
        fillBlock(statement, columns, block);
        if (!deliverBlock(block, callback, context, delivered)) return -1;
    }
    return endOf(block);
}

int deliverAhead(ReadAhead& reader, RowCallback callback, void* context, Delivered& delivered) {
    for (;;) {
        RowBlock& block = reader.ring().waitForFull();
        if (!deliverBlock(block, callback, context, delivered)) return -1;
        if (block.isLast) return endOf(block);
        reader.ring().passEmpty();
    }
}

}  // namespace

// The first block is read here: its callbacks run while the other thread starts.
int deliverRows(Statement& statement, RowColumns columns, long long mostRows, RowCallback callback, void* context,
                Delivered& delivered) {
    const auto first = std::make_unique<RowBlock>();
    if (mostRows >= 0 && mostRows < kReadAheadRows) {
        return deliverInTurn(statement, columns, *first, callback, context, delivered);
    }
    fillBlock(statement, columns, *first);
    std::optional<ReadAhead> reader;
    if (!first->isLast) reader.emplace(statement, columns, blocksFor(mostRows));
    if (!deliverBlock(*first, callback, context, delivered)) return -1;
    if (!reader || !reader->isRunning()) {
        return deliverInTurn(statement, columns, *first, callback, context, delivered);
    }
    const int result = deliverAhead(*reader, callback, context, delivered);
    if (result == 0 && delivered.rows == mostRows) reader->keepRing();  // a page that is full has a next one
    return result;
}

}  // namespace ombrel
