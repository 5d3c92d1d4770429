// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Returns when a file in a folder has been written to, made or removed.
//   await-change FOLDER
#include <sys/inotify.h>
#include <sysexits.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        (void)fputs("usage: await-change FOLDER\n", stderr);
        return EX_USAGE;
    }
    const int queue = inotify_init1(IN_CLOEXEC);
    constexpr unsigned kEvents = IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
    if (queue < 0 || inotify_add_watch(queue, argv[1], kEvents) < 0) {
        perror("await-change");
        return EX_OSERR;
    }
    char events[4096];
    return read(queue, events, sizeof events) > 0 ? EX_OK : EX_OSERR;
}
