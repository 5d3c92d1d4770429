// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskfileop/file_place.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "linux/common/dress_like.h"
#include "linux/common/error_record.h"
#include "linux/common/fd.h"
#include "linux/common/path_parts.h"
#include "linux/common/sync_folder.h"
#include "linux/common/write_all.h"

namespace ombrel {

namespace {

/// Takes the new name away again: the file keeps its old one, and must not exist twice. The code of errno.
int withdrawCopy(const std::string& to) {
    const int error = errno;
    (void)::unlink(to.c_str());  // what failed before is the failure to tell
    errno = error;
    return fromErrno(error);
}

// For file systems that cannot rename without replacing (some network and FUSE ones): a second name never
// replaces, and then the first one goes.
int linkAndUnlink(const std::string& from, const std::string& to) {
    if (::link(from.c_str(), to.c_str()) != 0) return fromErrno(errno);
    return ::unlink(from.c_str()) == 0 ? 0 : withdrawCopy(to);
}

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// The unfinished copy. The lock tells one that a dead process left from one that another process is at.
class PartFile {
public:
    explicit PartFile(const std::string& to) : path_(to + ".part") {}
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;
    ~PartFile() {
        const int error = errno;
        if (isOurs_) (void)::unlink(path_.c_str());  // a failed copy leaves nothing
        errno = error;
    }

    int create() {
        Fd file(::open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
        if (!file) return fromErrno(errno);
        if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) return fromErrno(errno);
        struct stat opened {};
        struct stat named {};
        const bool isNamed =
            ::fstat(file.get(), &opened) == 0 && ::lstat(path_.c_str(), &named) == 0 && isSameFile(opened, named);
        if (!isNamed || !S_ISREG(opened.st_mode)) {
            errno = EBUSY;
            return fromErrno(EBUSY);
        }
        isOurs_ = true;
        file_ = std::move(file);
        return ::ftruncate(file_.get(), 0) == 0 ? 0 : fromErrno(errno);
    }

    [[nodiscard]] int fd() const { return file_.get(); }

    int rename(const std::string& to) {
        const int code = renameWithoutReplacing(path_, to);
        if (code == 0) isOurs_ = false;
        return code;
    }

private:
    std::string path_;
    Fd file_;
    bool isOurs_ = false;
};

int copyBytes(const ReadAt& readAt, int fd) {
    std::vector<char> buffer(256UL * 1024);
    off_t offset = 0;
    for (;;) {
        const ssize_t got = readAt(buffer.data(), buffer.size(), offset);
        if (got == 0) return 0;
        if (got < 0 || !writeAll(fd, {buffer.data(), static_cast<size_t>(got)})) return fromErrno(errno);
        offset += got;
    }
}

}  // namespace

int renameWithoutReplacing(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno == EINVAL || errno == ENOSYS) return linkAndUnlink(from, to);
    return fromErrno(errno);
}

int copyInto(const ReadAt& readAt, const struct stat& like, const std::string& to) {
    PartFile part(to);
    if (const int code = part.create()) return code;
    if (const int code = copyBytes(readAt, part.fd())) return code;
    if (!dressLike(part.fd(), like)) return fromErrno(errno);
    if (::fsync(part.fd()) != 0) return fromErrno(errno);
    if (const int code = part.rename(to)) return code;
    return syncFolder(folderOf(to)) ? 0 : withdrawCopy(to);
}

int movePlainFile(const std::string& from, const std::string& to, const struct stat& info) {
    int code = renameWithoutReplacing(from, to);
    if (code == fromErrno(EXDEV)) {
        const Fd source(::open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (!source) return fromErrno(errno);
        code = copyInto(
            [&](char* buffer, size_t size, off_t offset) { return ::pread(source.get(), buffer, size, offset); },
            info, to);
        if (code == 0) code = removeSource(from, to);
    } else if (code == 0) {
        (void)syncFolder(folderOf(to));  // the move is done, and undoing it on a failing disk is no better
    }
    if (code == 0) (void)syncFolder(folderOf(from));
    return code;
}

int removeSource(const std::string& from, const std::string& to) {
    return ::unlink(from.c_str()) == 0 ? 0 : withdrawCopy(to);
}

}  // namespace ombrel
