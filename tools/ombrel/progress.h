// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A line that tells how far something has come, on a terminal and once it takes longer than a second. Where
// standard error is no terminal nothing is shown.
#pragma once

#include <chrono>
#include <string>

#include "tools/ombrel/terminal.h"

namespace ombrel {

class Progress {
public:
    /// `what`: "searching", of up to 40 characters; `unit`: "rows", "files", or empty for bytes.
    Progress(const Terminal& terminal, std::string what, std::string unit);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { clear(); }

    /// To be called as often as one likes. A `total` of 0 is one that is not known.
    void show(unsigned long long done, unsigned long long total);
    /// Takes the line away, for something else to be printed; the next `show` brings it back.
    void clear();

private:
    using Clock = std::chrono::steady_clock;
    Terminal terminal_;
    std::string what_;
    std::string unit_;
    Clock::time_point begun_ = Clock::now();
    Clock::time_point shown_;
    bool isShown_ = false;
};

}  // namespace ombrel
