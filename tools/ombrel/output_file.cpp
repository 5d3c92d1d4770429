// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "linux/common/path_parts.h"
#include "linux/common/sync_folder.h"
#include "linux/common/write_all.h"

namespace ombrel {

namespace {

std::string failure(const std::string& path) {
    return path + ": " + std::strerror(errno);
}

/// As open(2) would have made it.
mode_t usualMode() {
    const mode_t mask = ::umask(0);
    (void)::umask(mask);
    return 0666 & ~mask;
}

/// Where a file system does not know renames that leave alone what is there, a link does the same.
bool putInPlace(const std::string& from, const std::string& to, bool replace) {
    if (replace) return ::rename(from.c_str(), to.c_str()) == 0;
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    return ::link(from.c_str(), to.c_str()) == 0 && ::unlink(from.c_str()) == 0;
}

}  // namespace

OutputFile::~OutputFile() {
    if (!temporary_.empty()) (void)::unlink(temporary_.c_str());  // it has a name of its own, which does no harm
}

std::string OutputFile::open(const std::string& path, bool replace) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) return path + " is a folder; name a file in it";
        if (!S_ISREG(status.st_mode)) return path + " is no regular file";
        if (!replace) return path + " is there already; --force replaces it";
    }
    path_ = path;
    replace_ = replace;
    std::string name = path + ".XXXXXX";
    fd_.reset(::mkostemp(name.data(), O_CLOEXEC));
    if (!fd_) return failure(folderOf(path));
    temporary_ = name;
    return {};
}

void OutputFile::openStandardOutput() {
    isStandardOutput_ = true;
}

std::string OutputFile::nameBeside() const {
    if (!isStandardOutput_) return temporary_ + ".part";
    const char* folder = std::getenv("TMPDIR");
    return std::string(folder != nullptr && *folder == '/' ? folder : "/tmp") + "/ombrel-export-" +
           std::to_string(::getpid()) + ".part";
}

bool OutputFile::write(std::string_view bytes) {
    bytes_ += bytes.size();
    if (!isStandardOutput_) return writeAll(fd_.get(), bytes);
    while (!bytes.empty()) {  // asked to end, it is not to wait for a reader
        const ssize_t put = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (put < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

bool OutputFile::takeFile(const std::string& path) {
    const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return false;
    std::vector<char> buffer(1U << 20);
    for (;;) {
        const ssize_t got = ::read(file.get(), buffer.data(), buffer.size());
        if (got == 0) break;
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 || !write({buffer.data(), static_cast<std::size_t>(got)})) {
            const int code = errno;
            (void)::unlink(path.c_str());
            errno = code;
            return false;
        }
    }
    return ::unlink(path.c_str()) == 0;
}

std::string OutputFile::commit() {
    if (isStandardOutput_) return {};
    if (::fchmod(fd_.get(), usualMode()) != 0 || ::fsync(fd_.get()) != 0) return failure(temporary_);
    if (!putInPlace(temporary_, path_, replace_)) {
        return errno == EEXIST ? path_ + " has come meanwhile; --force replaces it" : failure(path_);
    }
    temporary_.clear();
    return syncFolder(folderOf(path_)) ? "" : failure(folderOf(path_));
}

}  // namespace ombrel
