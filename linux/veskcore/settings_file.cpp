// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskcore/settings_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "linux/common/error_record.h"
#include "linux/common/fd.h"
#include "linux/common/path_parts.h"
#include "linux/veskcore/atomic_write.h"
#include "linux/veskcore/folder_lock.h"

namespace ombrel {
namespace {

// A pipe in the place of a settings file must not block its reader.
constexpr int kReadFlags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
constexpr mode_t kModeWhenNew = 0644;

int readAll(int fd, std::string& text) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) return fail(fromErrno(errno));
    if (!S_ISREG(info.st_mode)) {
        errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
        return fail(fromErrno(errno));
    }
    constexpr std::size_t kLeastRoom = 4096;
    std::string bytes;
    bytes.reserve(static_cast<std::size_t>(info.st_size) + kLeastRoom);  // and the read that finds the end
    for (;;) {
        const std::size_t before = bytes.size();
        bytes.resize(std::max(bytes.capacity(), before + kLeastRoom));
        const ssize_t count = ::read(fd, bytes.data() + before, bytes.size() - before);
        bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count < 0 && errno != EINTR) return fail(fromErrno(errno));
        if (count == 0) break;
    }
    text = std::move(bytes);
    return 0;
}

/// Where `path` leads to over any number of symbolic links; the target need not exist.
int resolveLinks(const std::string& path, std::string& target) {
    constexpr int kMostLinks = 40;  // as the kernel has it
    std::string current = path;
    for (int links = 0; links <= kMostLinks; ++links) {
        char text[4096];
        const ssize_t length = ::readlink(current.c_str(), text, sizeof text);
        if (length < 0) {
            if (errno != EINVAL && errno != ENOENT) return fail(fromErrno(errno));
            target = std::move(current);
            return 0;
        }
        const std::string_view link(text, static_cast<std::size_t>(length));
        current = link.starts_with('/') ? std::string(link) : folderOf(current) + "/" + std::string(link);
    }
    errno = ELOOP;
    return fail(fromErrno(ELOOP));
}

}  // namespace

int readSettings(const char* path, std::string& text) {
    const Fd fd(::open(path, kReadFlags));
    if (!fd) return fail(fromErrno(errno));
    return readAll(fd.get(), text);
}

int changeSettings(const char* path, const Edit& edit) {
    std::string target;
    if (resolveLinks(path, target) != 0) return -1;
    FolderLock lock;
    if (lock.acquire(folderOf(target)) != 0) return -1;

    const std::string name = nameOf(target);
    if (name.empty()) return fail(fromErrno(EISDIR));
    const Fd old(::openat(lock.folder(), name.c_str(), kReadFlags | O_NOFOLLOW));
    if (!old && errno != ENOENT) return fail(fromErrno(errno));
    std::string text;
    if (old && readAll(old.get(), text) != 0) return -1;

    const Edited edited = edit(text);
    if (edited.error != 0) return fail(edited.error);
    if (old && edited.text == text) return 0;
    // The file is replaced, not written; who may not write it shall not replace it either.
    if (old && ::faccessat(lock.folder(), name.c_str(), W_OK, AT_EACCESS) != 0) return fail(fromErrno(errno));
    return replaceFile(lock.folder(), name, edited.text, old.get(), kModeWhenNew);
}

}  // namespace ombrel
