// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/notify_state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <sstream>
#include <utility>

#include "linux/common/write_all.h"

namespace ombrel {

namespace {

constexpr const char* kFile = "state";
constexpr const char* kNewFile = ".state.new";
constexpr std::string_view kTitle = "ombrel-notify 1 ";
constexpr std::size_t kLargest = std::size_t{1} << 20;
constexpr std::size_t kMostKnownSockets = 256;
/// Any quiet time is over since then, and nothing overflows.
constexpr long long kLongAgo = -(1LL << 40);

/// The rest of the line behind the blank that follows the last word.
std::string restOf(std::istringstream& words) {
    std::string rest;
    words.get();
    std::getline(words, rest);
    return rest;
}

void readCause(std::istringstream& words, bool isSameBoot, NoticeRecord& record) {
    NoticeRecord::Cause cause;
    std::string name;
    if (!(words >> cause.toldAt >> cause.pending)) return;
    words.get();
    if (!std::getline(words, name, '\t') || words.eof() || name.empty()) return;
    std::getline(words, cause.detail);
    // The clock began anew: the quiet time is over, and what is pending is due.
    if (!isSameBoot && cause.pending == 0) return;
    if (!isSameBoot) cause.toldAt = kLongAgo;
    if (record.causes.size() < NoticePolicy::kMostCauses) record.causes.emplace(name, cause);
}

void readLine(const std::string& line, bool isSameBoot, NotifyState& state) {
    std::istringstream words(line);
    std::string kind;
    words >> kind;
    if (kind == "events") {
        EventPosition position;
        if (words >> position.device >> position.inode >> position.offset >> position.head)
            state.events = position;
    } else if (kind == "looked") {
        if (!state.sockets) state.sockets.emplace();
    } else if (kind == "socket" && state.sockets && state.sockets->size() < kMostKnownSockets) {
        UdpSocket socket;
        if (words >> socket.port >> socket.inode >> socket.drops) state.sockets->push_back(socket);
    } else if (kind == "destination" || kind == "low") {
        state.notices.destination = restOf(words);
        state.notices.isLow = kind == "low";
    } else if (kind == "failing" && state.notices.failingFolders.size() < NoticePolicy::kMostFolders) {
        state.notices.failingFolders.insert(restOf(words));
    } else if (kind == "cause") {
        readCause(words, isSameBoot, state.notices);
    }
}

}  // namespace

std::string renderState(const NotifyState& state, const std::string& boot) {
    std::ostringstream text;
    const EventPosition& at = state.events;
    text << kTitle << boot << '\n';
    text << "events " << at.device << ' ' << at.inode << ' ' << at.offset << ' ' << at.head << '\n';
    if (state.sockets) {
        text << "looked\n";
        for (const UdpSocket& socket : *state.sockets)
            text << "socket " << socket.port << ' ' << socket.inode << ' ' << socket.drops << '\n';
    }
    if (!state.notices.destination.empty())
        text << (state.notices.isLow ? "low " : "destination ") << state.notices.destination << '\n';
    for (const std::string& folder : state.notices.failingFolders)
        text << "failing " << folder << '\n';
    for (const auto& [name, cause] : state.notices.causes)
        text << "cause " << cause.toldAt << ' ' << cause.pending << ' ' << name << '\t' << cause.detail << '\n';
    return text.str();
}

std::optional<NotifyState> parseState(std::string_view text, const std::string& boot) {
    if (!text.starts_with(kTitle)) return std::nullopt;
    std::istringstream lines{std::string(text)};
    std::string line;
    std::getline(lines, line);
    const bool isSameBoot = line.substr(kTitle.size()) == boot;
    NotifyState state;
    while (std::getline(lines, line))
        readLine(line, isSameBoot, state);
    return state;
}

int StateFolder::open(const std::string& path) {
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return errno;
    Fd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder || ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) return errno;
    folder_ = std::move(folder);
    return 0;
}

std::optional<NotifyState> StateFolder::load(const std::string& boot) const {
    if (!folder_) return std::nullopt;
    const Fd file(::openat(folder_.get(), kFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) return std::nullopt;
    std::string text(kLargest, '\0');
    std::size_t size = 0;
    while (size < kLargest) {
        const ssize_t got = ::read(file.get(), text.data() + size, kLargest - size);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        size += static_cast<std::size_t>(got);
    }
    return parseState(std::string_view(text).substr(0, size), boot);
}

int StateFolder::save(const NotifyState& state, const std::string& boot) const {
    if (!folder_) return EBADF;
    constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
    const Fd file(::openat(folder_.get(), kNewFile, kFlags, 0600));
    if (!file) return errno;
    // An empty state after a power failure would begin at the end of the event file.
    if (!writeAll(file.get(), renderState(state, boot)) || ::fdatasync(file.get()) != 0) return errno;
    return ::renameat(folder_.get(), kNewFile, folder_.get(), kFile) == 0 ? 0 : errno;
}

}  // namespace ombrel
