// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Serialises those who change files of one folder, across processes: an exclusive flock on the folder
// itself, which survives that the files in it are replaced, needs no lock file and ends with its holder.
// The working log databases use the same lock as their turnstile, so it is held for milliseconds only.
#pragma once

#include <chrono>
#include <string>

#include "linux/common/fd.h"

namespace ombrel {

class FolderLock {
public:
    FolderLock() = default;
    FolderLock(FolderLock&&) = default;
    FolderLock& operator=(FolderLock&&) = default;
    ~FolderLock();

    /// Waits until the folder is free, at most that long.
    /// @return 0; -1 with errno set (ETIMEDOUT: somebody else holds it) and entered in the error record
    int acquire(const std::string& folder, std::chrono::milliseconds longest = std::chrono::seconds(10));
    /// The folder, for the ...at() calls; valid while the lock is held.
    [[nodiscard]] int folder() const { return folder_.get(); }

private:
    Fd folder_;
};

}  // namespace ombrel
