// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The working databases, all at once: their last rows, and the rows that come.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ombrel/logarchiver.h"
#include "tools/ombrel/follow_watch.h"
#include "tools/ombrel/held_database.h"

namespace ombrel {

class TailFollow {
public:
    /// False: no more rows are wanted.
    using Print = std::function<bool(const LogRow&)>;

    /// The filter has to stay as long as the object. `watch` may be null for somebody who does not follow.
    TailFollow(LogArchiver& archiver, const LogFilter& filter, FollowWatch* watch, Print print)
        : archiver_(archiver), filter_(filter), watch_(watch), print_(std::move(print)) {}

    /// Prints the last wanted rows of all databases, by time, oldest first. What cannot be read is complained of.
    void printLast(std::size_t count);
    /// Prints rows as they come until it is asked to stop. `flush` is called when there is nothing to print.
    void follow(const std::function<bool()>& flush);

    /// Of the first thing that was wrong; 0 when nothing was.
    [[nodiscard]] int exitCode() const { return exitCode_; }

private:
    using HeldDatabases = std::vector<std::unique_ptr<HeldDatabase>>;
    using Databases = std::map<std::string, std::unique_ptr<HeldDatabase>>;

    /// Opens the databases that are not known yet; their paths.
    std::vector<std::string> find();
    void watchFolders();
    void watchFolder(const std::string& folder);
    void takeWake(const FollowWake& wake);
    void readGrown(const FollowWake& wake);
    void readAt(const std::string& path);
    void readArchived(const std::string& from, const std::string& to);
    bool isKnownArchive(const std::string& given);
    bool readOne(HeldDatabase& database);
    void complainOnce(const std::string& what, int code);

    LogArchiver& archiver_;
    const LogFilter& filter_;
    FollowWatch* watch_;
    Print print_;
    Databases databases_;  // by path
    // Archives that were read to their end before it was told that they were moved; names are used again.
    std::multiset<std::string> finished_;
    // Archives that were first seen as such, in this wake and the one before; held, so that no other file passes
    // for them.
    HeldDatabases late_;
    HeldDatabases lastLate_;
    std::set<std::string> announced_;   // databases of which that was told before
    std::set<std::string> complaints_;  // said already
    bool isStopped_ = false;
    int exitCode_ = 0;
};

}  // namespace ombrel
