// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/job_died.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "linux/common/fd.h"
#include "linux/common/job_name.h"
#include "linux/common/write_all.h"
#include "tools/ombrel-notify/boot_clock.h"
#include "tools/ombrel-notify/complaints.h"

namespace ombrel {

namespace {

constexpr long long kQuietSeconds = 60;

std::optional<int> readNumber(std::string_view word, int least, int most) {
    int value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || value < least || value > most)
        return std::nullopt;
    return value;
}

/// A number, or a name with or without "SIG", as different managers say it. An empty name is none.
std::optional<std::string> readSignal(std::string_view word) {
    if (const auto number = readNumber(word, 0, SIGRTMAX)) {
        if (*number == 0) return "";
        const char* const name = ::sigabbrev_np(*number);
        return name != nullptr ? name : std::to_string(*number);
    }
    if (word.starts_with("SIG")) word.remove_prefix(3);
    for (int number = 1; number < NSIG; ++number) {
        const char* const name = ::sigabbrev_np(number);
        if (name != nullptr && name == word) return name;
    }
    return std::nullopt;
}

/// When the last event of one job was entered, in a file that is locked meanwhile.
class Stamp {
public:
    /// False with errno set: EWOULDBLOCK while another process enters one.
    bool open(const std::string& folder, const std::string& job) {
        (void)::mkdir(folder.c_str(), 0700);  // the open below tells whether it is there
        file_.reset(::open((folder + "/died-" + job).c_str(),
                           O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
        return file_ && ::flock(file_.get(), LOCK_EX | LOCK_NB) == 0;
    }
    /// A stamp of another boot, or of the future, says nothing.
    [[nodiscard]] bool isRecent(const std::string& boot, long long now) const {
        std::array<char, 128> bytes{};
        if (!file_ || ::pread(file_.get(), bytes.data(), bytes.size() - 1, 0) <= 0) return false;
        std::istringstream words(bytes.data());
        std::string ofBoot;
        long long then = 0;
        return words >> ofBoot >> then && ofBoot == boot && then <= now && now - then < kQuietSeconds;
    }
    void set(const std::string& boot, long long now) {
        // A stamp that cannot be kept means an event too many.
        if (file_ && ::ftruncate(file_.get(), 0) == 0)
            (void)writeAll(file_.get(), boot + " " + std::to_string(now) + "\n");
    }

private:
    Fd file_;
};

std::string sentence(const JobDeath& death) {
    return death.job +
           (death.signal.empty() ? ": exit code " + std::to_string(death.exitCode) : ": signal " + death.signal);
}

std::vector<EventField> fieldsOf(const JobDeath& death) {
    if (death.signal.empty()) return {{"job", death.job}, {"exit_code", death.exitCode}};
    return {{"job", death.job}, {"signal", death.signal}};
}

}  // namespace

std::optional<JobDeath> readJobDeath(std::span<char* const> words) {
    if (words.size() != 3 || !isJobName(words[0])) return std::nullopt;
    const auto exitCode = readNumber(words[1], -1, 255);
    auto signal = readSignal(words[2]);
    if (!exitCode || !signal || (*exitCode < 0) == signal->empty()) return std::nullopt;
    return JobDeath{words[0], *exitCode, std::move(*signal)};
}

int enterJobDeath(const JobDeath& death, const JobDeathPlaces& places) {
    if (death.exitCode == 0) return EX_OK;  // it had done what it was there for
    Stamp stamp;
    if (!stamp.open(places.stampFolder, death.job)) {
        if (errno == EWOULDBLOCK) return EX_OK;
        complain(places.stampFolder + ": " + std::strerror(errno) + remedyFor(errno) +
                 "; without it there may be more than one event a minute");
    }
    const std::string boot = bootName();
    const long long now = bootSeconds();
    if (stamp.isRecent(boot, now)) return EX_OK;
    const std::string text = sentence(death);
    if (!appendEventLine(places.eventFile, kJobDied, text, fieldsOf(death))) {
        const int error = errno;
        complain(places.eventFile + " cannot be written: " + std::strerror(error) + remedyFor(error));
        return error == EACCES || error == EPERM ? EX_NOPERM : EX_CANTCREAT;
    }
    stamp.set(boot, now);
    (void)sendToJournal(places.journalSocket, kJobDied, text);  // not every box has a journal
    return EX_OK;
}

}  // namespace ombrel
