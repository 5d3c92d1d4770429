// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/visible_log.h"

#include <syslog.h>
#include <unistd.h>

#include <utility>

#include "linux/common/text_escape.h"

namespace ombrel {

namespace {

constexpr size_t kMaxLine = 4000;
constexpr std::chrono::minutes kPause{1};

}  // namespace

void logLine(std::string_view text) {
    const std::string line = escapeForLine(text.substr(0, kMaxLine)) + '\n';
    (void)!::write(STDERR_FILENO, line.data(), line.size());  // there is no one left to tell
}

void logToSystem(std::string_view text) {
    logLine(text);
    ::syslog(LOG_DAEMON | LOG_ERR, "%s", escapeForLine(text.substr(0, kMaxLine)).c_str());
}

void LogThrottle::log(std::string_view text, Clock::time_point now) {
    if (active_ && now - last_ < kPause) return;
    active_ = true;
    last_ = now;
    logLine(text);
}

void LogThrottle::over(std::string_view text) {
    if (std::exchange(active_, false)) logLine(text);
}

}  // namespace ombrel
