// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/stats_run.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "linux/common/day_text.h"
#include "tools/ombrel/reader_threads.h"
#include "tools/ombrel/time_words.h"

namespace ombrel {

namespace {

constexpr const char* kUnreadableDay = "1970-01-01";  // of archives whose days could not be told

class Counting {
public:
    Counting(const std::vector<LogFile>& files, const StatsWanted& wanted) : files_(files), wanted_(wanted) {
        why_.resize(files.size());
    }

    void run(Progress& progress) {
        const std::size_t threads = std::min<std::size_t>(readerThreads(), files_.size());
        if (threads <= 1) {
            work([this, &progress] { progress.show(passed_, 0); });
            return;
        }
        std::vector<std::thread> workers;
        working_ = threads;
        for (std::size_t i = 0; i < threads; ++i)
            workers.emplace_back([this] { workAside(); });
        showUntilDone(progress);
        for (std::thread& worker : workers)
            worker.join();
        if (failure_) std::rethrow_exception(failure_);
    }

    StatsResult take() {
        StatsResult result{std::move(counts_), 0, {}};
        for (std::string& why : why_) {
            if (why.empty()) {
                ++result.read;
            } else {
                result.failed.push_back(std::move(why));
            }
        }
        return result;
    }

private:
    template <typename AfterEach>
    void work(const AfterEach& afterEach) {
        NameCounts mine;
        for (std::size_t i = next_++; i < files_.size() && !stop_; i = next_++) {
            const LogFile& file = files_[i];
            const bool isWorking = file.kind == LogFile::Kind::kWorking;
            if (auto why = countDatabase(file.path, isWorking, wanted_, mine, passed_, stop_)) why_[i] = *why;
            afterEach();
        }
        const std::lock_guard lock(mutex_);
        counts_.add(mine);
    }

    void workAside() {
        std::exception_ptr failure;
        try {
            work([] {});
        } catch (...) {
            failure = std::current_exception();
            stop_ = true;
        }
        const std::lock_guard lock(mutex_);
        if (failure) failure_ = failure;
        --working_;
        done_.notify_one();
    }

    void showUntilDone(Progress& progress) {
        constexpr auto kBetween = std::chrono::milliseconds(200);
        std::unique_lock lock(mutex_);
        while (!done_.wait_for(lock, kBetween, [this] { return working_ == 0; }))
            progress.show(passed_, 0);
    }

    const std::vector<LogFile>& files_;
    const StatsWanted& wanted_;
    std::atomic<std::size_t> next_{0};
    std::atomic<unsigned long long> passed_{0};
    std::atomic<bool> stop_{false};
    std::vector<std::string> why_;  // a place for each file, which one thread writes
    std::mutex mutex_;              // for what follows
    std::condition_variable done_;
    NameCounts counts_;
    std::size_t working_ = 0;
    std::exception_ptr failure_;
};

}  // namespace

// A day more at both ends: the zone may have been another one when the file got its name.
std::vector<LogFile> filesBetween(std::vector<LogFile> files, const LogFilter& filter) {
    const std::string first = filter.since() ? localDay(*filter.since() - kDaySeconds) : "";
    const std::string last = filter.until() ? localDay(*filter.until() + kDaySeconds) : "";
    std::erase_if(files, [&](const LogFile& file) {
        if (file.firstDay.empty() || file.firstDay == kUnreadableDay) return false;
        return (!first.empty() && file.lastDay < first) || (!last.empty() && file.firstDay > last);
    });
    return files;
}

StatsResult countFiles(const std::vector<LogFile>& files, const StatsWanted& wanted, Progress& progress) {
    Counting counting(files, wanted);
    counting.run(progress);
    progress.clear();
    return counting.take();
}

}  // namespace ombrel
