// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Waits until the post-processing of every archive below a folder has ended: no archived database stands
// beside its ZIP file any more. Woken by inotify; gives up, with exit code 1, after the given time.
//   await-archives FOLDER SECONDS
#include <poll.h>
#include <sys/inotify.h>
#include <sysexits.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// The archived databases (working ones are named otherwise) and zip's temporary files (ziXXXXXX).
long unfinished(const fs::path& folder) {
    long count = 0;
    for (const auto& entry :
         fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied)) {
        const std::string name = entry.path().filename().string();
        const bool isArchive = name.ends_with(".DB") && !name.starts_with("VESKSYSLOGDB_");
        const bool isTemporary = name.size() == 8 && name.starts_with("zi");
        if (isArchive || isTemporary || name.ends_with(".TXT")) ++count;
    }
    return count;
}

void watch(int queue, const fs::path& folder) {
    constexpr unsigned kEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE;
    (void)inotify_add_watch(queue, folder.c_str(), kEvents);
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_directory()) (void)inotify_add_watch(queue, entry.path().c_str(), kEvents);
    }
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 3) {
        (void)fputs("usage: await-archives FOLDER SECONDS\n", stderr);
        return EX_USAGE;
    }
    const fs::path folder = argv[1];
    const auto deadline = Clock::now() + std::chrono::seconds(std::atoi(argv[2]));
    const int queue = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (queue < 0) return EX_OSERR;
    watch(queue, folder);
    while (true) {
        long left = 0;
        try {
            left = unfinished(folder);
        } catch (const fs::filesystem_error&) {
            left = 1;  // a file went away under the walk
        }
        if (left == 0) return 0;
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (rest <= 0) {
            (void)fprintf(stderr, "await-archives: %ld files below %s are still in work\n", left, folder.c_str());
            return 1;
        }
        pollfd ready{queue, POLLIN, 0};
        (void)poll(&ready, 1, static_cast<int>(rest));
        char events[4096];
        while (read(queue, events, sizeof events) > 0) {
        }
    }
} catch (const std::exception& error) {
    (void)fprintf(stderr, "await-archives: %s\n", error.what());
    return EX_SOFTWARE;
}
