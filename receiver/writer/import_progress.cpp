// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/import_progress.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "linux/common/progress_bar.h"

namespace ombrel {

namespace {

constexpr std::chrono::milliseconds kBetweenShows{100};

void toTerminal(const std::string& text) {
    (void)!::write(STDERR_FILENO, text.data(), text.size());  // a bar that is not seen does no harm
}

}  // namespace

ImportProgress::ImportProgress(unsigned long long totalBytes)
    : totalBytes_(totalBytes), terminal_(::isatty(STDERR_FILENO) == 1), started_(Clock::now()) {
}

std::string ImportProgress::text(unsigned long long bytes, unsigned long long total, unsigned long long rows,
                                 double seconds) {
    const std::string bar = total > 0 ? progressBar(shareDone(bytes, total)) + "  " : "";
    std::array<char, 96> numbers{};
    const double rate = seconds > 0 ? static_cast<double>(rows) / seconds : 0;
    (void)std::snprintf(numbers.data(), numbers.size(), "%.1f MB  %llu rows  %.0f rows/s",
                        static_cast<double>(bytes) / 1e6, rows, rate);
    return bar + numbers.data();
}

double ImportProgress::seconds() const {
    return std::chrono::duration<double>(Clock::now() - started_).count();
}

void ImportProgress::show(unsigned long long bytes, unsigned long long rows) {
    if (!terminal_ || Clock::now() - last_ < kBetweenShows) return;
    last_ = Clock::now();
    shown_ = true;
    toTerminal("\r" + text(bytes, totalBytes_, rows, seconds()) + "\x1b[K");
}

void ImportProgress::end() {
    if (shown_) toTerminal("\r\x1b[K");
    shown_ = false;
}

}  // namespace ombrel
