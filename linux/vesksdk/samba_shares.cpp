// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksdk/samba_shares.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include "linux/common/child_process.h"
#include "linux/common/error_record.h"
#include "linux/vesksdk/user_shares.h"

namespace ombrel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kDefinitionFile = "/etc/samba/smb.conf";
/// A change of a file that the definition file includes may be noticed that much later.
constexpr std::chrono::seconds kLongestReuse{1};

/// Which text the definition file holds.
struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec changed{};

    bool operator==(const FileState& other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

std::optional<FileState> stateOfDefinitions() {
    struct stat info {};
    if (::stat(kDefinitionFile, &info) != 0) return std::nullopt;
    return FileState{info.st_dev, info.st_ino, info.st_size, info.st_ctim};
}

struct Reading {
    std::optional<FileState> state;
    Clock::time_point time;
    ShareDefinitions definitions;
};

thread_local Reading lastReading;

int readDefinitions(Reuse reuse, ShareDefinitions& definitions) {
    const std::optional<FileState> state = stateOfDefinitions();
    const bool isFresh = state && state == lastReading.state && Clock::now() - lastReading.time < kLongestReuse;
    if (reuse == Reuse::kJustRead && isFresh) {
        definitions = lastReading.definitions;
        return 0;
    }
    // -v also prints the parameters that are at their defaults, which the user shares depend on.
    const ProgramResult testparm = runProgram({"/usr/bin/testparm", "-s", "-v"}, std::chrono::seconds(10));
    if (testparm.error != 0) return fail(testparm.error);
    if (testparm.exitCode != 0) return fail(kErrorProgramFailed);
    definitions = parseDefinitions(testparm.output);
    lastReading = {state, Clock::now(), definitions};
    return 0;
}

}  // namespace

int readShares(std::vector<Share>& shares, Reuse reuse) {
    ShareDefinitions definitions;
    if (readDefinitions(reuse, definitions) != 0) return -1;
    for (Share& user : userShares(definitions)) {
        const auto same = [&user](const Share& share) { return sameShareName(share.name, user.name); };
        // What the administrator defined goes before what a user defined under the same name.
        if (std::none_of(definitions.shares.begin(), definitions.shares.end(), same))
            definitions.shares.push_back(std::move(user));
    }
    shares = std::move(definitions.shares);
    return 0;
}

}  // namespace ombrel
