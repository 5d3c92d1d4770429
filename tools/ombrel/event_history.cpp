// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/event_history.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "linux/common/fd.h"

namespace ombrel {

namespace {

constexpr std::size_t kBlock = std::size_t{64} * 1024;

/// The lines of a file, the last one first.
class LinesFromTheEnd {
public:
    LinesFromTheEnd(int file, std::uint64_t end) : file_(file), begin_(end) {
        std::string unfinished;  // what has no line break yet is still being written
        (void)next(unfinished);
    }

    bool next(std::string& line) {
        for (;;) {
            const std::size_t lineBreak = rest_.rfind('\n');
            if (lineBreak != std::string::npos) {
                line = rest_.substr(lineBreak + 1);
                rest_.resize(lineBreak);
                return true;
            }
            if (begin_ == 0 || error_ != 0) {
                line.clear();
                line.swap(rest_);
                return !std::exchange(isThrough_, true) && error_ == 0;
            }
            if (rest_.size() > kLongestEventLine) rest_ = "?";  // no event, however it goes on
            error_ = fill();
        }
    }
    [[nodiscard]] int error() const { return error_; }

private:
    int fill() {
        std::string block(std::min<std::uint64_t>(kBlock, begin_), '\0');
        std::size_t done = 0;
        while (done < block.size()) {
            const auto at = static_cast<off_t>(begin_ - block.size() + done);
            const ssize_t got = ::pread(file_, block.data() + done, block.size() - done, at);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return got < 0 ? errno : EIO;  // somebody cut it off
            done += static_cast<std::size_t>(got);
        }
        begin_ -= block.size();
        rest_.insert(0, block);
        return 0;
    }

    int file_;
    std::uint64_t begin_;  // of what is in `rest_`
    std::string rest_;
    int error_ = 0;
    bool isThrough_ = false;
};

struct OpenedFile {
    Fd file;
    std::uint64_t size = 0;
    std::uint64_t inode = 0;
};

/// Whatever stands at the name, opening it does not wait.
int openFile(const std::string& path, OpenedFile& opened) {
    opened.file.reset(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!opened.file || ::fstat(opened.file.get(), &info) != 0) return errno == ENOENT ? 0 : errno;
    if (!S_ISREG(info.st_mode)) return EINVAL;
    opened.size = static_cast<std::uint64_t>(info.st_size);
    opened.inode = info.st_ino;
    return 0;
}

/// Adds to the records, newest first.
void readFile(const OpenedFile& opened, const EventQuery& query, EventHistory& history) {
    LinesFromTheEnd lines(opened.file.get(), opened.size);
    std::string line;
    while ((query.most == 0 || history.records.size() < query.most) && lines.next(line)) {
        if (line.empty()) continue;
        auto record = readEventRecord(line);
        if (!record) {
            ++history.damaged;
        } else if (query.wants(*record)) {
            history.records.push_back(std::move(*record));
        }
    }
    if (lines.error() != 0) history.error = lines.error();
}

}  // namespace

bool EventQuery::wants(const EventRecord& record) const {
    return (!since || record.time >= *since) && (event.empty() || record.line.event == event) &&
           (!failuresOnly || isFailure(record));
}

EventHistory readEventHistory(const std::string& path, const EventQuery& query,
                              const std::optional<EventPosition>& end) {
    EventHistory history;
    // The newer one first: a file that is turned away in between is then read twice, not missed.
    std::array<OpenedFile, 2> files;
    const std::array<std::string, 2> paths = {path, path + ".1"};
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (const int error = openFile(paths[i], files[i]); error != 0 && history.error == 0)
            history.error = error;
    }
    if (files[0].file && files[0].inode == files[1].inode) files[1].file.reset();
    for (OpenedFile& opened : files) {
        if (!opened.file) continue;
        if (end && opened.inode == end->inode) {
            opened.size = std::min<std::uint64_t>(opened.size, end->offset);
        } else if (end && &opened == &files[0]) {
            continue;  // begun since
        }
        readFile(opened, query, history);
    }
    std::reverse(history.records.begin(), history.records.end());
    return history;
}

}  // namespace ombrel
