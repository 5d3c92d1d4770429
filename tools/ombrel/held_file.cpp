// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/held_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "linux/common/path_parts.h"
#include "linux/common/write_all.h"

namespace ombrel {

namespace {

constexpr std::string_view kRemoved = " (deleted)";  // proc(5)

LogReader::Identity identityOf(const struct stat64& status) {
    return {status.st_dev, status.st_ino};
}

bool copyAll(int from, int to) {
    std::array<char, 65536> buffer;
    off64_t at = 0;
    for (;;) {
        const ssize_t got = ::pread64(from, buffer.data(), buffer.size(), at);
        if (got == 0) return true;
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 || !writeAll(to, {buffer.data(), static_cast<std::size_t>(got)})) return false;
        at += got;
    }
}

std::string nameOfDescriptor(int fd) {
    std::array<char, PATH_MAX> buffer{};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = ::readlink(link.c_str(), buffer.data(), buffer.size());
    return {buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

}  // namespace

std::string withoutLinks(const std::string& path) {
    const Fd folder(::open(folderOf(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::string name = folder ? nameOfDescriptor(folder.get()) : "";
    return name.empty() ? path : name + "/" + nameOf(path);
}

TemporaryCopy::~TemporaryCopy() {
    if (!path_.empty()) (void)::unlink(path_.c_str());  // what is left over is swept away with the others there
}

bool TemporaryCopy::copy(int file) {
    const char* folder = std::getenv("TMPDIR");
    std::string path = std::string(folder != nullptr && *folder == '/' ? folder : "/tmp") + "/ombrel-XXXXXX";
    const Fd copied(::mkstemp(path.data()));
    if (!copied) return false;
    path_ = path;
    return copyAll(file, copied.get());
}

// Whatever stands at the path, opening it does not wait.
bool HeldFile::open(const std::string& path) {
    Fd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat64 status {};
    if (!fd || ::fstat64(fd.get(), &status) != 0) return false;
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return false;
    }
    fd_ = std::move(fd);
    identity_ = identityOf(status);
    return true;
}

bool HeldFile::isAt(const std::string& path) const {
    struct stat64 status {};
    return ::stat64(path.c_str(), &status) == 0 && identityOf(status) == identity_;
}

HeldFile::Name HeldFile::name() const {
    std::string path = nameOfDescriptor(fd_.get());
    struct stat64 status {};
    const bool isRemoved = path.empty() || ::fstat64(fd_.get(), &status) != 0 || status.st_nlink == 0;
    if (isRemoved && path.ends_with(kRemoved)) path.resize(path.size() - kRemoved.size());
    return {path, isRemoved};
}

}  // namespace ombrel
