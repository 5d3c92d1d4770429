// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Waits until a log database holds so many rows, or a file so many lines. Woken by inotify when the file
// changes; gives up, with exit code 1, after 300 seconds.
//   await-growth --rows N DATABASE | --count N DATABASE | --lines N FILE
// --rows asks the information record, --count takes the last id of table logs, from which nothing was ever taken:
// COUNT(*) would hold the lock against the writer for long.
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "linux/common/path_parts.h"
#include "linux/common/sqlite_db.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kLongest = std::chrono::seconds(300);

/// Counts the line ends of a growing file; reads only what is new at each call.
class LineCounter {
public:
    explicit LineCounter(std::string path) : path_(std::move(path)) {}
    ~LineCounter() {
        if (fd_ >= 0) close(fd_);
    }
    LineCounter(const LineCounter&) = delete;
    LineCounter& operator=(const LineCounter&) = delete;

    long long operator()() {
        if (fd_ < 0) fd_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd_ < 0) return -1;
        static char buffer[1 << 20];
        for (ssize_t n = 0; (n = read(fd_, buffer, sizeof buffer)) > 0;)
            count(buffer, static_cast<size_t>(n));
        return lines_;
    }

private:
    // It shares the processors with what is measured, and memchr is much the fastest.
    void count(const char* from, size_t size) {
        const char* const end = from + size;
        while ((from = static_cast<const char*>(std::memchr(from, '\n', static_cast<size_t>(end - from))))) {
            ++from;
            ++lines_;
        }
    }

    std::string path_;
    int fd_ = -1;
    long long lines_ = 0;
};

long long answer(const std::string& path, const char* sql) {
    if (access(path.c_str(), R_OK) != 0) return -1;
    ombrel::Connection db;
    ombrel::Statement statement;
    if (db.open(path, ombrel::OpenMode::kReadOnly) != 0 || statement.prepare(db, sql) != 0) return -1;
    return statement.step() == ombrel::Statement::kRow ? statement.columnInt(0) : -1;
}

/// Watches the folder, or while it is not there the nearest one above it. True for the folder itself.
bool watchNearest(int queue, const std::string& folder) {
    constexpr unsigned kEvents = IN_MODIFY | IN_CREATE | IN_MOVED_TO;
    std::string nearest = folder;
    std::string missing;
    while (inotify_add_watch(queue, nearest.c_str(), kEvents) < 0) {
        if (errno != ENOENT || nearest == "/") return false;
        missing = nearest;
        nearest = ombrel::folderOf(nearest);
    }
    // It may have been made before the watch above it was there.
    if (!missing.empty() && access(missing.c_str(), F_OK) == 0) return watchNearest(queue, folder);
    return missing.empty();
}

bool await(const std::string& path, long long wanted, const std::function<long long()>& measure) {
    const int queue = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (queue < 0) return false;
    bool isWatched = watchNearest(queue, ombrel::folderOf(path));
    const auto deadline = Clock::now() + kLongest;
    while (measure() < wanted) {
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (rest <= 0) return false;
        pollfd ready{queue, POLLIN, 0};
        (void)poll(&ready, 1, static_cast<int>(rest));
        char events[65536];
        while (read(queue, events, sizeof events) > 0) {
        }
        isWatched = isWatched || watchNearest(queue, ombrel::folderOf(path));
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 || argv[3][0] != '/') {
        (void)fputs("usage: await-growth --rows|--count|--lines N ABSOLUTE_PATH\n", stderr);
        return 64;
    }
    const std::string_view what = argv[1];
    const long long wanted = std::atoll(argv[2]);
    const std::string path = argv[3];
    if (what == "--lines") {
        LineCounter lines(path);
        return await(path, wanted, [&] { return lines(); }) ? 0 : 1;
    }
    const char* sql = what == "--rows" ? "SELECT row_count FROM loginfo" : "SELECT max(rowid) FROM logs";
    return await(path, wanted, [&] { return answer(path, sql); }) ? 0 : 1;
}
