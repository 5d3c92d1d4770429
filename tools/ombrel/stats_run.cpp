// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/stats_run.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "tools/ombrel/folder_listing.h"
#include "tools/ombrel/search_files.h"
#include "tools/ombrel/search_zip.h"
#include "tools/ombrel/worker_count.h"

namespace ombrel {

namespace {

class Counting {
public:
    Counting(const std::vector<LogFile>& files, const StatsWanted& wanted) : files_(files), wanted_(wanted) {
        why_.resize(files.size());
    }

    void run(Progress& progress) {
        const std::size_t threads = std::min<std::size_t>(workerCount(), files_.size());
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
            why_[i] = countFile(files_[i], mine).value_or("");
            afterEach();
        }
        const std::lock_guard lock(mutex_);
        counts_.add(mine);
    }

    std::optional<std::string> countFile(const LogFile& file, NameCounts& counts) {
        if (file.kind == LogFile::Kind::kZip) return countZip(file.path, counts);
        const bool isWorking = file.kind == LogFile::Kind::kWorking;
        auto why = countDatabase(file.path, isWorking, wanted_, counts, passed_, stop_);
        if (!why || file.kind != LogFile::Kind::kArchive || fileEntry(file.path)) return why;
        // Packed since it was found, and removed before it was opened.
        const std::string zip = file.path.substr(0, file.path.rfind('.')) + ".ZIP";
        return fileEntry(zip) ? countZip(zip, counts) : why;
    }

    std::optional<std::string> countZip(const std::string& path, NameCounts& counts) {
        for (std::size_t number = 0; !stop_; ++number) {
            const Unpacked unpacked = scratch_.unpack(path, number, [this] { return !stop_; });
            if (!unpacked.error.empty()) return unpacked.error;
            if (unpacked.path == nullptr) break;
            if (countDatabase(*unpacked.path, false, wanted_, counts, passed_, stop_)) {
                return path + ": a database in it is damaged: see what `unzip -t` says of it";
            }
            if (unpacked.isLast) break;
        }
        return std::nullopt;
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
    ZipScratch scratch_;
    std::vector<std::string> why_;  // a place for each file, which one thread writes
    std::mutex mutex_;              // for what follows
    std::condition_variable done_;
    NameCounts counts_;
    std::size_t working_ = 0;
    std::exception_ptr failure_;
};

}  // namespace

std::vector<LogFile> filesBetween(std::vector<LogFile> files, const LogFilter& filter) {
    std::erase_if(files,
                  [&filter](const LogFile& file) { return !mayHold(file, filter.since(), filter.until()); });
    return files;
}

StatsResult countFiles(const std::vector<LogFile>& files, const StatsWanted& wanted, Progress& progress) {
    Counting counting(files, wanted);
    counting.run(progress);
    progress.clear();
    return counting.take();
}

}  // namespace ombrel
