// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksyslog/event_log.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>

#include "linux/common/fd.h"
#include "linux/common/path_parts.h"
#include "linux/common/text_escape.h"
#include "linux/common/timed_lock.h"

namespace ombrel {

namespace {

/// Of one event for those of other processes.
constexpr std::chrono::milliseconds kLongestWait{500};

// RFC 3339, local time with its offset.
std::string timestampNow() {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    if (::localtime_r(&now, &local) == nullptr) return "1970-01-01T00:00:00Z";
    std::array<char, 40> text{};
    const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S%z", &local);
    std::string stamp(text.data(), length);
    return stamp.insert(stamp.size() - 2, ":");  // "+0100" of strftime lacks the colon
}

Fd openForAppending(const std::string& path) {
    constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    Fd file(::open(path.c_str(), kFlags, 0640));
    if (file || errno != ENOENT) return file;
    (void)::mkdir(folderOf(path).c_str(), 0755);  // the open below tells whether it is there
    return Fd(::open(path.c_str(), kFlags, 0640));
}

// The lock keeps two processes from turning a full file and then the new one away.
void turnFullFileAway(const std::string& path, const Fd& file) {
    struct stat opened {};
    if (::fstat(file.get(), &opened) != 0 || opened.st_size < kEventFileLimit) return;
    if (!lockWithin(file.get(), LOCK_EX, kLongestWait)) return;
    struct stat named {};
    const bool isStillNamed =
        ::stat(path.c_str(), &named) == 0 && named.st_ino == opened.st_ino && named.st_dev == opened.st_dev;
    if (isStillNamed) (void)::rename(path.c_str(), (path + ".1").c_str());  // a file that stays only grows
}

// A disk that was full may have cut the last line off: the next one shall not be lost with it. Under the lock,
// since a line of another process that is just being written looks the same.
bool endsInsideALine(const Fd& file) {
    struct stat info {};
    char last = '\n';
    if (::fstat(file.get(), &info) != 0 || info.st_size == 0) return false;
    return ::pread(file.get(), &last, 1, info.st_size - 1) == 1 && last != '\n';
}

std::string members(std::span<const EventField> fields) {
    std::string text;
    for (const EventField& field : fields) {
        text += "," + quoteJson(field.name) + ":";
        const long long* number = std::get_if<long long>(&field.value);
        text += number != nullptr ? std::to_string(*number) : quoteJson(std::get<std::string>(field.value));
    }
    return text;
}

// A line break ends a field of the journal's protocol, so a field is sent with its length.
void appendField(std::string& entry, const char* name, const std::string& value) {
    entry += name;
    entry += '\n';
    for (size_t shift = 0; shift < 64; shift += 8)
        entry += static_cast<char>(value.size() >> shift & 0xff);
    entry += value;
    entry += '\n';
}

}  // namespace

bool appendEventLine(const std::string& path, const Event& event, const std::string& text,
                     std::span<const EventField> fields) {
    Fd file = openForAppending(path);
    if (!file) return false;
    turnFullFileAway(path, file);
    file = openForAppending(path);
    if (!file) return false;
    const bool isAlone = lockWithin(file.get(), LOCK_EX, kLongestWait);  // otherwise a hanging process holds it
    const std::string line = std::string(isAlone && endsInsideALine(file) ? "\n" : "") +
                             "{\"time\":" + quoteJson(timestampNow()) + ",\"event\":" + quoteJson(event.name) +
                             ",\"text\":" + quoteJson(text) + members(fields) + "}\n";
    const ssize_t put = ::write(file.get(), line.data(), line.size());
    if (put == static_cast<ssize_t>(line.size())) return true;
    if (put >= 0) errno = ENOSPC;
    return false;
}

bool sendToJournal(const std::string& socketPath, const Event& event, const std::string& text) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    const Fd sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sender) return false;
    const timeval limit{1, 0};
    if (::setsockopt(sender.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) return false;

    std::string entry;
    appendField(entry, "MESSAGE", std::string(event.sentence) + ": " + text);
    appendField(entry, "MESSAGE_ID", event.messageId);
    appendField(entry, "PRIORITY", event.isFailure ? "3" : "6");
    appendField(entry, "SYSLOG_IDENTIFIER", "ombrel");
    appendField(entry, "OMBREL_EVENT", event.name);
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    return ::sendto(sender.get(), entry.data(), entry.size(), MSG_NOSIGNAL, to, sizeof address) >= 0;
}

}  // namespace ombrel
