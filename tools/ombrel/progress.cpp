// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/progress.h"

#include <unistd.h>

#include "linux/common/progress_bar.h"

namespace ombrel {

namespace {

constexpr auto kFirstShown = std::chrono::seconds(1);
constexpr auto kBetween = std::chrono::milliseconds(100);

/// Not through stdio: a process that is forked meanwhile would inherit its lock.
void put(const std::string& text) {
    (void)!::write(STDERR_FILENO, text.data(), text.size());  // nobody is worse off without it
}

}  // namespace

Progress::Progress(const Terminal& terminal, std::string what, std::string unit)
    : terminal_(terminal), what_(std::move(what)), unit_(std::move(unit)) {
}

void Progress::show(unsigned long long done, unsigned long long total) {
    if (!terminal_.isTerminal) return;
    const Clock::time_point now = Clock::now();
    if (now - begun_ < kFirstShown || (isShown_ && now - shown_ < kBetween)) return;
    const double seconds = std::chrono::duration<double>(now - begun_).count();
    const double share = shareDone(done, total);
    std::string line = what_ + " ";
    if (total > 0) line += progressBar(share) + " ";
    line += unit_.empty() ? sizeText(done) : groupedNumber(done) + " " + unit_;
    if (total > 0 && share > 0.01 && share < 1) line += ", " + durationText(seconds / share - seconds) + " left";
    const auto columns = static_cast<std::size_t>(terminal_.columns);
    put("\r\x1b[K" + cutToColumns(line, columns > 1 ? columns - 1 : 1));
    isShown_ = true;
    shown_ = now;
}

void Progress::clear() {
    if (!isShown_) return;
    put("\r\x1b[K");
    isShown_ = false;
}

}  // namespace ombrel
