// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskcore/folder_lock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>

#include "linux/common/error_record.h"

namespace ombrel {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// True when taken; otherwise errno says why, EWOULDBLOCK when it is held.
bool tryLock(int folder) {
    int result;
    do {
        result = ::flock(folder, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

/// Tells when somebody closes the folder, which is what a holder does next after letting go.
Fd watchFolder(const std::string& folder) {
    Fd watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (watch && ::inotify_add_watch(watch.get(), folder.c_str(), IN_CLOSE_NOWRITE | IN_ONLYDIR) < 0)
        watch.reset();
    return watch;
}

/// Waits for the next close of the folder. A killed holder's close is told a moment before its lock is
/// gone, and there may be no watch left to be had, so the wait ends after a while in any case.
void awaitChange(const Fd& watch, milliseconds longest) {
    constexpr milliseconds kLongestBlindWait{50};
    const milliseconds wait = std::clamp(longest, milliseconds(1), kLongestBlindWait);
    pollfd event{watch.get(), POLLIN, 0};
    if (::poll(&event, 1, static_cast<int>(wait.count())) <= 0) return;
    alignas(inotify_event) char events[4096];
    while (::read(watch.get(), events, sizeof events) > 0) {
    }
}

}  // namespace

FolderLock::~FolderLock() {
    // Let go before the close, so that whoever is woken by the close finds the folder free.
    if (folder_) (void)::flock(folder_.get(), LOCK_UN);  // the close would do it otherwise
}

int FolderLock::acquire(const std::string& folder, milliseconds longest) {
    const Clock::time_point deadline = Clock::now() + longest;
    Fd opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened) return fail(fromErrno(errno));
    Fd watch;
    while (!tryLock(opened.get())) {
        if (errno != EWOULDBLOCK) return fail(fromErrno(errno));
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        if (left <= milliseconds(0)) {
            errno = ETIMEDOUT;
            return fail(kErrorTimeout);
        }
        if (watch) {
            awaitChange(watch, left);
        } else {
            watch = watchFolder(folder);  // then look again: the lock may have been dropped before the watch
            if (!watch) awaitChange(watch, left);
        }
    }
    folder_ = std::move(opened);
    return 0;
}

}  // namespace ombrel
