// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What somebody who follows files as they grow waits for: changes of files in folders, a change of the settings,
// and to be asked to end.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ombrel {

struct FollowWake {
    bool stop = false;              ///< asked to end, or nobody reads the output any more
    bool settings = false;          ///< the settings may have changed
    bool missed = false;            ///< more happened than could be kept: anything may have changed
    std::set<std::string> grown;    ///< folders with a file that was written to
    std::set<std::string> entries;  ///< folders with a file that came or went
    /// Files that were given another name, from one watched folder to another, in the order in which it happened.
    std::vector<std::pair<std::string, std::string>> renamed;
};

class FollowWatch {
public:
    FollowWatch() = default;
    FollowWatch(const FollowWatch&) = delete;
    FollowWatch& operator=(const FollowWatch&) = delete;
    virtual ~FollowWatch() = default;

    /// From now on, also when it was asked for already. Of a folder that is not there yet the nearest one above it
    /// is watched. False with errno set.
    virtual bool watch(const std::string& folder) = 0;
    /// Waits, without a limit, until something has happened.
    virtual FollowWake wait() = 0;
    /// Whether to end, asked in between.
    [[nodiscard]] virtual bool stopAsked() const = 0;
};

/// Begins to watch the settings file and to take the signals of stop_signals.h. Null with errno set.
std::unique_ptr<FollowWatch> openFollowWatch(const std::string& settingsFile);

}  // namespace ombrel
