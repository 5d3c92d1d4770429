// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/event_stream.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "tools/ombrel-notify/file_watch.h"
#include "tools/ombrel/machine_places.h"

namespace ombrel {

namespace {

/// False when nobody reads standard output any more.
bool awaitChange(FileWatch& watch, int& error) {
    std::array<pollfd, 2> waiting = {{{watch.fd(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    while (::poll(waiting.data(), waiting.size(), -1) < 0) {
        if (errno == EINTR) continue;
        error = errno;
        return false;
    }
    (void)watch.changed();  // whatever it was, the file is looked at
    return (waiting[1].revents & (POLLERR | POLLHUP)) == 0;
}

}  // namespace

int followEvents(EventFollower& follower, const std::function<bool(std::string_view line)>& sink) {
    FileWatch watch;
    if (!watch.start()) return errno;
    watch.add(eventFile(), IN_MODIFY | IN_MOVED_TO | IN_CREATE);
    if (!watch.refresh()) return errno;
    bool isWanted = true;
    int error = 0;
    do {
        error = follower.read([&](std::string_view line) { isWanted = isWanted && sink(line); });
    } while (error == 0 && isWanted && awaitChange(watch, error));
    return error;
}

}  // namespace ombrel
