// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/scratch_place.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "linux/common/folder_stream.h"

namespace ombrel {

namespace {

constexpr std::string_view kPrefix = "ombrel-search-";

Fd openFolder(int at, const char* path) {
    return Fd(::openat(at, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

bool isOurs(const struct stat& status) {
    return status.st_uid == ::geteuid();
}

// Where others can rename what is in a folder, they could put another folder in the place of ours.
bool isSafe(const std::string& folder) {
    struct stat status {};
    if (folder.empty() || ::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return false;
    if (status.st_uid != 0 && !isOurs(status)) return false;
    return (status.st_mode & 022) == 0 || (status.st_mode & S_ISVTX) != 0;
}

std::vector<std::string> namesIn(int folder) {
    std::vector<std::string> names;
    Fd again(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const FolderStream stream(again ? ::fdopendir(again.get()) : nullptr);
    if (stream == nullptr) return names;
    (void)again.release();
    while (const dirent* const entry = ::readdir(stream.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.emplace_back(name);
    }
    return names;
}

void removeFiles(int folder) {
    for (const std::string& name : namesIn(folder))
        (void)::unlinkat(folder, name.c_str(), 0);  // what cannot be removed keeps the folder
}

/// Takes away the folders of runs that have ended without doing so.
void sweep(const std::string& scratch) {
    const Fd folder = openFolder(AT_FDCWD, scratch.c_str());
    if (!folder) return;
    for (const std::string& name : namesIn(folder.get())) {
        if (!name.starts_with(kPrefix)) continue;
        const Fd left = openFolder(folder.get(), name.c_str());
        struct stat status {};
        if (!left || ::fstat(left.get(), &status) != 0 || !isOurs(status)) continue;
        if (::flock(left.get(), LOCK_EX | LOCK_NB) != 0) continue;  // somebody is at work there
        removeFiles(left.get());
        (void)::unlinkat(folder.get(), name.c_str(), AT_REMOVEDIR);  // it goes the next time otherwise
    }
}

std::string temporaryFolder() {
    const char* named = std::getenv("TMPDIR");
    return named != nullptr && *named == '/' ? named : "/tmp";
}

}  // namespace

// Another run may sweep the folder away before it is locked: then it is made again.
std::unique_ptr<ScratchPlace> ScratchPlace::make(std::string scratch, std::string& error) {
    constexpr int kTries = 5;
    if (!isSafe(scratch)) scratch = temporaryFolder();
    if (!isSafe(scratch)) {
        error = "cannot use the folder " + scratch +
                " to unpack: it cannot be written to, or others could meddle there";
        return nullptr;
    }
    sweep(scratch);
    if (scratch.back() != '/') scratch += '/';
    for (int i = 0; i < kTries; ++i) {
        std::string folder = scratch + std::string(kPrefix) + "XXXXXX";
        if (::mkdtemp(folder.data()) == nullptr) break;
        Fd lock = openFolder(AT_FDCWD, folder.c_str());
        struct stat open {};
        struct stat now {};
        const bool isLocked =
            lock && ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0 && ::fstat(lock.get(), &open) == 0;
        if (isLocked && ::lstat(folder.c_str(), &now) == 0 && now.st_ino == open.st_ino &&
            now.st_dev == open.st_dev) {
            return std::unique_ptr<ScratchPlace>(new ScratchPlace(std::move(folder), std::move(lock)));
        }
    }
    error = "cannot make a folder in " + scratch + ": " + std::strerror(errno);
    return nullptr;
}

ScratchPlace::~ScratchPlace() {
    removeFiles(lock_.get());
    (void)::rmdir(path_.c_str());  // the next run sees to it otherwise
}

}  // namespace ombrel
