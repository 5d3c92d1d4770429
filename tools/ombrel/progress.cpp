// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/progress.h"

#include <cstdio>

#include "linux/common/progress_bar.h"

namespace ombrel {

namespace {

constexpr auto kFirstShown = std::chrono::seconds(1);
constexpr auto kBetween = std::chrono::milliseconds(100);

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
    (void)std::fprintf(stderr, "\r\x1b[K%s", cutToColumns(line, columns > 1 ? columns - 1 : 1).c_str());
    (void)std::fflush(stderr);
    isShown_ = true;
    shown_ = now;
}

void Progress::clear() {
    if (!isShown_) return;
    (void)std::fputs("\r\x1b[K", stderr);
    (void)std::fflush(stderr);
    isShown_ = false;
}

}  // namespace ombrel
