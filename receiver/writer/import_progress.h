// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The progress of an import on a terminal, and its summary.
#pragma once

#include <chrono>
#include <string>

namespace ombrel {

class ImportProgress {
public:
    using Clock = std::chrono::steady_clock;

    /// `totalBytes` 0: the size is not known. Shows a bar on standard error when that is a terminal.
    explicit ImportProgress(unsigned long long totalBytes);
    void show(unsigned long long bytes, unsigned long long rows);
    /// Takes the bar away.
    void end();
    [[nodiscard]] double seconds() const;

    /// "[####......]  40 %  12.3 MB  45678 rows  9012 rows/s"
    static std::string text(unsigned long long bytes, unsigned long long total, unsigned long long rows,
                            double seconds);

private:
    unsigned long long totalBytes_;
    bool terminal_;
    bool shown_ = false;
    Clock::time_point started_;
    Clock::time_point last_{};
};

}  // namespace ombrel
