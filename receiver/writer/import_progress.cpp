// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/import_progress.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace ombrel {

namespace {

constexpr std::chrono::milliseconds kBetweenShows{100};
constexpr int kBarWidth = 24;

void toTerminal(const std::string& text) {
    (void)!::write(STDERR_FILENO, text.data(), text.size());  // a bar that is not seen does no harm
}

}  // namespace

ImportProgress::ImportProgress(unsigned long long totalBytes)
    : totalBytes_(totalBytes), terminal_(::isatty(STDERR_FILENO) == 1), started_(Clock::now()) {
}

std::string ImportProgress::text(unsigned long long bytes, unsigned long long total, unsigned long long rows,
                                 double seconds) {
    std::string shown;
    if (total > 0) {
        const double part = std::min(1.0, static_cast<double>(bytes) / static_cast<double>(total));
        const auto filled = static_cast<size_t>(part * kBarWidth);
        shown = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] ";
        std::array<char, 16> percent{};
        (void)std::snprintf(percent.data(), percent.size(), "%3.0f %%  ", part * 100);
        shown += percent.data();
    }
    std::array<char, 96> numbers{};
    const double rate = seconds > 0 ? static_cast<double>(rows) / seconds : 0;
    (void)std::snprintf(numbers.data(), numbers.size(), "%.1f MB  %llu rows  %.0f rows/s",
                        static_cast<double>(bytes) / 1e6, rows, rate);
    return shown + numbers.data();
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
