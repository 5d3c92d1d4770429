// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/store/database_pool.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "receiver/message/destination_name.h"
#include "receiver/store/host_folder.h"

namespace ombrel {

namespace {

constexpr size_t kMaxKnownHosts = 20'000;
// Commits of several files that wait for the disk at once are often served by one write of its journal.
constexpr size_t kThreads = 8;

struct DirClose {
    void operator()(DIR* dir) const noexcept { (void)::closedir(dir); }  // it was only read
};

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

size_t countFolders(const std::string& path) {
    const std::unique_ptr<DIR, DirClose> dir(::opendir(path.c_str()));
    if (!dir) return 0;
    size_t count = 0;
    while (const dirent* entry = ::readdir(dir.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != ".." && isFolder(path + "/" + entry->d_name)) ++count;
    }
    return count;
}

void add(const StoreOutcome& one, StoreOutcome& sum) {
    sum.rows += one.rows;
    sum.repeated += one.repeated;
    if (!one.notice.empty()) sum.notice += (sum.notice.empty() ? "" : "; ") + one.notice;
    if (one.stored) return;
    sum.stored = false;
    if (sum.error.empty()) sum.error = one.error.empty() ? "out of memory" : one.error;
}

bool isOfThisMachine(const RowBatch& batch) noexcept {
    return lineKindOf(batch.receiver) == LineKind::kOfThisMachine;
}

}  // namespace

DatabasePool::DatabasePool(std::string archiveFolder, bool byDevice, const std::string& schema, Limits limits)
    : archiveFolder_(std::move(archiveFolder)), byDevice_(byDevice), schema_(schema), limits_(limits) {
    if (byDevice_) hostFolders_ = countFolders(archiveFolder_);
}

// A folder that is there is used whatever the number; where something else has its name, none can be made.
std::string DatabasePool::chooseFolder(std::string_view host) {
    std::string folder = encodeHostName(host);
    const std::string path = archiveFolder_ + "/" + folder;
    if (isFolder(path)) return folder;
    if (hostFolders_ >= limits_.hostFolders || exists(path)) return std::string(kOtherHostsFolder);
    ++hostFolders_;
    return folder;
}

const std::string& DatabasePool::folderOfHost(std::string_view host) {
    std::string key(host);
    if (const auto known = folders_.find(key); known != folders_.end()) return known->second;
    if (folders_.size() >= kMaxKnownHosts) folders_.clear();
    return folders_.emplace(std::move(key), chooseFolder(host)).first->second;
}

void DatabasePool::splitByHost(const RowBatch& batch, Split& parts) {
    for (const LogRow& row : batch.rows) {
        std::vector<RowBatch>& part = parts[hostDatabasePath(archiveFolder_, folderOfHost(row.host))];
        if (part.empty() || part.back().receiver != batch.receiver) part.push_back({batch.receiver, {}});
        part.back().rows.push_back(row);
    }
}

DatabasePool::Split DatabasePool::split(const std::vector<RowBatch>& batches) {
    Split parts;
    for (const RowBatch& batch : batches) {
        if (isOfThisMachine(batch)) {
            parts[localDatabasePath(archiveFolder_)].push_back(batch);
        } else if (byDevice_) {
            splitByHost(batch, parts);
        } else {
            parts[sharedDatabasePath(archiveFolder_)].push_back(batch);
        }
    }
    return parts;
}

WorkingDatabase& DatabasePool::open(const std::string& path) {
    const auto found = std::find_if(open_.begin(), open_.end(),
                                    [&path](const WorkingDatabase& database) { return database.path() == path; });
    if (found != open_.end()) {
        open_.splice(open_.begin(), open_, found);
    } else {
        if (open_.size() >= limits_.openDatabases) open_.pop_back();
        const bool ofOneHost = byDevice_ && path != localDatabasePath(archiveFolder_);
        open_.emplace_front(path, schema_,
                            ofOneHost ? WorkingDatabase::kHostPages : WorkingDatabase::kSharedPages);
    }
    return open_.front();
}

// One database's share of the batches.
struct DatabasePool::Part {
    WorkingDatabase* database = nullptr;
    const std::vector<RowBatch>* batches = nullptr;
    StoreOutcome outcome;
};

void DatabasePool::storeParts(std::vector<Part>& parts) {
    std::atomic<size_t> next = 0;
    const auto work = [&parts, &next] {
        LocalClock own;
        for (size_t i = next++; i < parts.size(); i = next++) {
            Part& part = parts[i];
            try {
                part.outcome = part.database->store(*part.batches, own);
            } catch (const std::bad_alloc&) {
                part.outcome = StoreOutcome();  // its error is added by whoever finds nothing stored
            }
        }
    };
    std::vector<std::jthread> threads;
    try {
        while (threads.size() + 1 < std::min(parts.size(), kThreads))
            threads.emplace_back(work);
    } catch (const std::system_error&) {
        // The machine allows no more of them: those that there are do it all.
    }
    work();
}

StoreOutcome DatabasePool::storeSplit(const Split& all) {
    StoreOutcome sum;
    sum.stored = true;
    // No more at a time than may be open: none is closed while it is in use.
    for (auto rest = all.begin(); rest != all.end() && sum.stored;) {
        std::vector<Part> parts;
        for (; rest != all.end() && parts.size() < limits_.openDatabases; ++rest)
            parts.push_back({&open(rest->first), &rest->second, {}});
        storeParts(parts);
        for (const Part& part : parts)
            add(part.outcome, sum);
    }
    return sum;
}

StoreOutcome DatabasePool::store(const std::vector<RowBatch>& batches, LocalClock& clock) {
    clock.refresh();
    const bool someLocal = std::any_of(batches.begin(), batches.end(), isOfThisMachine);
    if (byDevice_ || someLocal) return storeSplit(split(batches));
    return open(sharedDatabasePath(archiveFolder_)).store(batches, clock);
}

}  // namespace ombrel
