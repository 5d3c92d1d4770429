// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The programs' own log: lines on standard error, which the supervisor keeps. Control characters are escaped,
// since what strangers sent may be quoted in them.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace ombrel {

void logLine(std::string_view text);
/// The same, and the system log (syslog(3), daemon, err): what an administrator is to mend.
void logToSystem(std::string_view text);

/// Lets one line a minute through for as long as something stays wrong.
class LogThrottle {
public:
    using Clock = std::chrono::steady_clock;
    void log(std::string_view text, Clock::time_point now = Clock::now());
    /// Says, once, that what was logged last is over.
    void over(std::string_view text);

private:
    bool active_ = false;
    Clock::time_point last_{};
};

}  // namespace ombrel
