// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/folder_listing.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "linux/common/folder_stream.h"
#include "linux/common/path_parts.h"

namespace ombrel {

namespace {

FolderEntry entryOf(std::string name, const struct stat& status) {
    FolderEntry entry;
    entry.name = std::move(name);
    entry.isFolder = S_ISDIR(status.st_mode);
    entry.bytes = static_cast<unsigned long long>(status.st_size);
    entry.changed = status.st_mtim.tv_sec;
    return entry;
}

}  // namespace

std::optional<std::vector<FolderEntry>> listFolder(const std::string& path) {
    const FolderStream folder(::opendir(path.c_str()));
    if (folder == nullptr) return std::nullopt;
    std::vector<FolderEntry> entries;
    errno = 0;
    while (const dirent* found = ::readdir(folder.get())) {
        const std::string name = found->d_name;
        struct stat status {};
        // One that is gone again in between is none.
        const bool isThere =
            name[0] != '.' && ::fstatat(::dirfd(folder.get()), found->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0;
        if (isThere && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode))) {
            entries.push_back(entryOf(name, status));
        }
        errno = 0;
    }
    if (errno != 0) return std::nullopt;
    return entries;
}

std::optional<FolderEntry> fileEntry(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return std::nullopt;
    }
    return entryOf(nameOf(path), status);
}

}  // namespace ombrel
