// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/tail_follow.h"

#include <sysexits.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "linux/common/path_parts.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/folder_listing.h"
#include "tools/ombrel/log_files.h"

namespace ombrel {

namespace {

bool isWorkingName(const std::string& name) {
    return name.starts_with("VESKSYSLOGDB_") && name.ends_with(".DB");
}

int codeOf(const std::string& why) {
    return why.ends_with(std::strerror(EACCES)) ? EX_NOPERM : EX_NOINPUT;
}

/// The newest `count` rows of lists that each begin with the row that came last. Those of one database stay in the
/// order in which they came.
std::vector<LogRow> newestOf(std::vector<std::vector<LogRow>>& lists, std::size_t count) {
    std::vector<std::size_t> next(lists.size(), 0);
    std::vector<LogRow> newest;
    while (newest.size() < count) {
        std::size_t best = lists.size();
        for (std::size_t i = 0; i < lists.size(); ++i) {
            if (next[i] == lists[i].size()) continue;
            if (best == lists.size() || lists[i][next[i]].time > lists[best][next[best]].time) best = i;
        }
        if (best == lists.size()) break;
        newest.push_back(std::move(lists[best][next[best]++]));
    }
    return newest;
}

}  // namespace

void TailFollow::complainOnce(const std::string& what, int code) {
    if (exitCode_ == 0) exitCode_ = code;
    if (complaints_.insert(what).second) (void)complain(code, what);
}

void TailFollow::watchFolder(const std::string& folder) {
    if (watch_->watch(folder)) return;
    const int code = errno;
    complainOnce(folder + ": new rows cannot be waited for: " + std::strerror(code),
                 code == EACCES ? EX_NOPERM : EX_NOINPUT);
}

/// Before one looks into them: what comes later is told of.
void TailFollow::watchFolders() {
    watchFolder(archiver_.strArchDest);
    if (archiver_.ByDevice == 0) return;
    const auto entries = listFolder(archiver_.strArchDest);
    if (!entries) return;  // whoever looks for databases there says why
    for (const FolderEntry& entry : *entries) {
        if (entry.isFolder && entry.name != "@tmp") watchFolder(archiver_.strArchDest + "/" + entry.name);
    }
}

std::vector<std::string> TailFollow::find() {
    if (watch_ != nullptr) watchFolders();
    std::vector<std::string> fresh;
    const LogFiles found = findLogFiles(archiver_, LogPlaces::kWorking);
    for (const std::string& note : found.notes) {
        // One that follows waits for a folder that is to come.
        if (watch_ == nullptr || !note.ends_with(std::strerror(ENOENT))) complainOnce(note, codeOf(note));
    }
    for (const LogFile& file : found.files) {
        if (databases_.contains(file.path)) continue;
        auto database = std::make_unique<HeldDatabase>(file.path, filter_);
        if (database->open()) {
            databases_.emplace(file.path, std::move(database));
            fresh.push_back(file.path);
        } else if (errno != ENOENT) {
            complainOnce(file.path + ": " + std::strerror(errno), errno == EACCES ? EX_NOPERM : EX_NOINPUT);
        }
    }
    return fresh;
}

void TailFollow::printLast(std::size_t count) {
    std::vector<std::vector<LogRow>> lists;
    for (const std::string& path : find()) {
        std::vector<LogRow> rows;
        HeldDatabase& database = *databases_.at(path);
        if (!database.takeLast(count, rows)) complainOnce(database.error(), codeOf(database.error()));
        lists.push_back(std::move(rows));
    }
    std::erase_if(databases_, [](const auto& entry) { return entry.second->isFinished(); });
    const std::vector<LogRow> newest = newestOf(lists, count);
    for (auto row = newest.rbegin(); row != newest.rend() && !isStopped_; ++row)
        isStopped_ = !print_(*row);
}

/// False: it is not to be read any more.
bool TailFollow::readOne(HeldDatabase& database) {
    const auto end = database.read([this](LogRow& row) {
        isStopped_ = watch_->stopAsked() || !print_(row);
        return !isStopped_;
    });
    if (end == LogReader::End::kFailed) complainOnce(database.error(), codeOf(database.error()));
    return !database.isFinished();
}

void TailFollow::readAt(const std::string& path) {
    constexpr std::size_t kMostNames = 1000;
    const auto found = databases_.find(path);
    if (found == databases_.end() || readOne(*found->second) || isStopped_) return;
    if (finished_.size() >= kMostNames) finished_.clear();
    if (announced_.erase(path) == 0) finished_.insert(found->second->nameNow());
    databases_.erase(found);
}

void TailFollow::readGrown(const FollowWake& wake) {
    std::vector<std::string> paths;
    for (const auto& [path, database] : databases_) {
        const std::string folder = folderOf(path);
        if (wake.missed || wake.grown.contains(folder) || wake.entries.contains(folder)) paths.push_back(path);
    }
    for (const std::string& path : paths) {
        if (!isStopped_) readAt(path);
    }
}

bool TailFollow::isKnownArchive(const std::string& given) {
    const std::string path = withoutLinks(given);
    if (const auto found = finished_.find(path); found != finished_.end()) {
        finished_.erase(found);
        return true;
    }
    const auto held = std::find_if(databases_.begin(), databases_.end(), [&path](const auto& entry) {
        return entry.second->isAt(path) || entry.second->nameNow() == path;
    });
    if (held == databases_.end()) return false;
    announced_.insert(held->first);
    return true;
}

/// One that came and was archived while others were read and printed. When it is packed already, its name may be
/// that of a later one, which is then read in its place, and not again when its own turn comes.
void TailFollow::readArchived(const std::string& from, const std::string& to) {
    if (isStopped_ || !isWorkingName(nameOf(from)) || isKnownArchive(to)) return;
    const auto isOneOf = [&to](const HeldDatabases& read) {
        return std::any_of(read.begin(), read.end(), [&to](const auto& one) { return one->isAt(to); });
    };
    auto archive = std::make_unique<HeldDatabase>(to, filter_);
    if (isOneOf(lastLate_) || isOneOf(late_) || !archive->open()) {
        complainOnce(to + ": archived and packed before its rows could be read; ombrel search shows them", 1);
        return;
    }
    (void)readOne(*archive);
    late_.push_back(std::move(archive));
}

void TailFollow::takeWake(const FollowWake& wake) {
    if (wake.missed) complainOnce("more happened at once than can be followed; rows may be missing", 1);
    readGrown(wake);
    // The turn of a later one comes now or with the next wake, which takes all that has happened.
    lastLate_ = std::exchange(late_, {});
    for (const auto& [from, to] : wake.renamed)
        readArchived(from, to);
    // While it is being written it may lack keys: the settings stay as they are until it is whole.
    if (wake.settings) (void)archiver_.ConfigLoad(kSettingsFile);
    if (!wake.settings && !wake.missed && wake.entries.empty()) return;
    // All of them: one that was found before its folder was watched may have grown in between.
    (void)find();
    std::vector<std::string> paths;
    for (const auto& [path, database] : databases_)
        paths.push_back(path);
    for (const std::string& path : paths) {
        if (!isStopped_) readAt(path);
    }
}

void TailFollow::follow(const std::function<bool()>& flush) {
    // What came between the last rows and the first wait.
    FollowWake wake;
    wake.settings = true;
    for (const auto& [path, database] : databases_)
        wake.grown.insert(folderOf(path));
    while (!isStopped_) {
        takeWake(wake);
        if (isStopped_ || !flush()) return;
        wake = watch_->wait();
        isStopped_ = wake.stop;
    }
}

}  // namespace ombrel
