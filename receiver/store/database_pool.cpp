// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/store/database_pool.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include "receiver/store/host_folder.h"

namespace ombrel {

namespace {

constexpr size_t kMaxKnownHosts = 20'000;

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

DatabasePool::Split DatabasePool::split(const std::vector<RowBatch>& batches) {
    Split parts;
    for (const RowBatch& batch : batches) {
        for (const LogRow& row : batch.rows) {
            std::vector<RowBatch>& part = parts[hostDatabasePath(archiveFolder_, folderOfHost(row.host))];
            if (part.empty() || part.back().receiver != batch.receiver) part.push_back({batch.receiver, {}});
            part.back().rows.push_back(row);
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
        open_.emplace_front(path, schema_);
    }
    return open_.front();
}

StoreOutcome DatabasePool::store(const std::vector<RowBatch>& batches, LocalClock& clock) {
    clock.refresh();
    if (!byDevice_) return open(sharedDatabasePath(archiveFolder_)).store(batches, clock);
    StoreOutcome sum;
    sum.stored = true;
    for (const auto& [path, part] : split(batches)) {
        const StoreOutcome one = open(path).store(part, clock);
        sum.rows += one.rows;
        sum.repeated += one.repeated;
        if (!one.notice.empty()) sum.notice += (sum.notice.empty() ? "" : "; ") + one.notice;
        if (!one.stored) {
            sum.stored = false;
            sum.error = one.error;
            break;
        }
    }
    return sum;
}

}  // namespace ombrel
