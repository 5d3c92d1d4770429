// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/event_follower.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "linux/vesksyslog/event_line.h"

namespace ombrel {

namespace {

/// Long enough to hold the time of the first event.
constexpr std::size_t kHeadBytes = 64;

// FNV-1a.
std::uint64_t headOf(int file, std::uint64_t offset) {
    std::array<char, kHeadBytes> bytes{};
    const ssize_t got = ::pread(file, bytes.data(), std::min<std::uint64_t>(kHeadBytes, offset), 0);
    std::uint64_t sum = 0xcbf29ce484222325U;
    for (ssize_t i = 0; i < got; ++i)
        sum = (sum ^ static_cast<unsigned char>(bytes[static_cast<std::size_t>(i)])) * 0x100000001b3U;
    return sum;
}

bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_ino == other.st_ino && one.st_dev == other.st_dev;
}

}  // namespace

// Whatever stands at the name, opening it does not wait; the writers follow no link there either.
int EventFollower::open(const std::string& path, Fd& file) const {
    Fd opened(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!opened || ::fstat(opened.get(), &info) != 0) return errno;
    if (!S_ISREG(info.st_mode)) return EINVAL;
    file = std::move(opened);
    return 0;
}

bool EventFollower::resumeIn(const std::string& path, const EventPosition& position) {
    Fd file;
    struct stat info {};
    if (open(path, file) != 0 || ::fstat(file.get(), &info) != 0) return false;
    if (info.st_dev != position.device || info.st_ino != position.inode ||
        static_cast<std::uint64_t>(info.st_size) < position.offset ||
        headOf(file.get(), position.offset) != position.head)
        return false;
    file_ = std::move(file);
    offset_ = position.offset;
    return true;
}

void EventFollower::start(const std::optional<EventPosition>& position) {
    if (position) {
        if (position->inode != 0 && !resumeIn(path_, *position)) (void)resumeIn(path_ + ".1", *position);
        return;
    }
    struct stat info {};
    if (open(path_, file_) == 0 && ::fstat(file_.get(), &info) == 0)
        offset_ = static_cast<std::uint64_t>(info.st_size);
}

int EventFollower::read(const Sink& sink) {
    for (;;) {
        struct stat named {};
        struct stat held {};
        const bool isThere = ::lstat(path_.c_str(), &named) == 0;
        const int error = isThere ? 0 : errno;
        if (file_) {
            if (::fstat(file_.get(), &held) != 0) return errno;
            // Cut off by somebody: what is in it now has come since.
            if (static_cast<std::uint64_t>(held.st_size) < offset_) {
                offset_ = 0;
                isInside_ = false;
            }
            // Looked up before it is read to its end, so that the last lines before a turn are not missed.
            if (const int failed = drain(sink)) return failed;
        }
        if (!isThere) return error == ENOENT || error == ENOTDIR ? 0 : error;
        if (file_ && isSameFile(named, held)) return 0;
        Fd next;
        if (const int failed = open(path_, next)) return failed == ENOENT ? 0 : failed;
        file_ = std::move(next);
        offset_ = 0;
        isInside_ = false;
    }
}

int EventFollower::drain(const Sink& sink) {
    std::string bytes(kLongestEventLine + 1, '\0');
    for (;;) {
        const ssize_t got = ::pread(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset_));
        if (got < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        const std::size_t taken = takeLines({bytes.data(), static_cast<std::size_t>(got)}, sink);
        if (taken == 0) return 0;
        offset_ += taken;
    }
}

/// How many bytes are done with.
std::size_t EventFollower::takeLines(std::string_view bytes, const Sink& sink) {
    std::size_t done = 0;
    for (;;) {
        const std::size_t end = bytes.find('\n', done);
        if (end == std::string_view::npos) break;
        if (!std::exchange(isInside_, false)) sink(bytes.substr(done, end - done));
        done = end + 1;
    }
    if (done == 0 && bytes.size() > kLongestEventLine) isInside_ = true;
    return isInside_ ? bytes.size() : done;
}

EventPosition EventFollower::position() const {
    struct stat info {};
    if (!file_ || ::fstat(file_.get(), &info) != 0) return {};
    return {info.st_dev, info.st_ino, offset_, headOf(file_.get(), offset_)};
}

}  // namespace ombrel
