// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/progress_display.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "linux/common/path_parts.h"
#include "linux/common/progress_bar.h"
#include "linux/common/text_escape.h"
#include "linux/common/write_all.h"

namespace ombrel {

namespace {

constexpr std::chrono::milliseconds kBetweenBars{100};
constexpr std::chrono::seconds kBetweenLines{1};
constexpr double kSmoothingSeconds = 2;
constexpr int kMarks = 20;
constexpr std::size_t kUsualColumns = 80;
constexpr std::size_t kLeastOfName = 8;

bool countsBytes(UpgradeStage stage) {
    return stage == UpgradeStage::kUnpacking || stage == UpgradeStage::kPacking;
}

const char* stageName(UpgradeStage stage) {
    switch (stage) {
        case UpgradeStage::kUnpacking:
            return "unpacking";
        case UpgradeStage::kConverting:
            return "converting";
        case UpgradeStage::kVerifying:
            return "verifying";
        case UpgradeStage::kPacking:
            return "packing";
    }
    return "";
}

unsigned long long counted(long long value) {
    return static_cast<unsigned long long>(std::max(value, 0LL));
}

double shareOf(long long done, long long total) {
    return total > 0 ? shareDone(counted(done), counted(total)) : 0;
}

std::string amountText(const ProgressState& state) {
    if (countsBytes(state.stage)) return sizeText(counted(state.done)) + " of " + sizeText(counted(state.total));
    return groupedNumber(counted(state.done)) + " of " + groupedNumber(counted(state.total)) + " rows";
}

std::string ordinalText(const ProgressState& state) {
    return state.files > 1 ? std::to_string(state.number) + "/" + std::to_string(state.files) + " "
                           : std::string();
}

/// Empty while nothing has been measured.
std::string rateText(const ProgressState& state, const char* separator) {
    if (state.perSecond < 1) return {};
    const auto rate = static_cast<unsigned long long>(state.perSecond);
    const double left = static_cast<double>(std::max(state.total - state.done, 0LL)) / state.perSecond;
    return separator + (countsBytes(state.stage) ? sizeText(rate) + "/s" : groupedNumber(rate) + " rows/s") +
           separator + durationText(left) + " left";
}

std::size_t terminalColumns() {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualColumns;
}

void toStandardError(const std::string& text) {
    (void)writeAll(STDERR_FILENO, text);  // progress that is not seen does no harm
}

}  // namespace

// Exponential: what was measured kSmoothingSeconds ago counts for a third.
void RateMeter::add(long long done, ProgressClock::time_point now) {
    if (last_) {
        const double seconds = std::chrono::duration<double>(now - *last_).count();
        if (seconds <= 0) return;
        const double measured = static_cast<double>(std::max(done - done_, 0LL)) / seconds;
        const double weight = isMeasured_ ? 1 - std::exp(-seconds / kSmoothingSeconds) : 1;
        rate_ += (measured - rate_) * weight;
        isMeasured_ = true;
    }
    last_ = now;
    done_ = done;
}

std::string percentText(long long done, long long total) {
    return std::to_string(static_cast<int>(shareOf(done, total) * 100)) + " %";
}

std::string terminalText(const ProgressState& state, std::size_t columns) {
    const std::string before = progressBar(shareOf(state.done, state.total), kMarks) + "  " + ordinalText(state);
    const std::string after =
        std::string("  ") + stageName(state.stage) + "  " + amountText(state) + rateText(state, "  ");
    const std::size_t others = before.size() + after.size();
    const std::size_t forName = columns > others ? columns - others : 0;
    const std::string name = shortenMiddle(escapeForLine(state.name), std::max(forName, kLeastOfName));
    return cutToColumns(before + name + after, columns);
}

std::string lineText(const ProgressState& state) {
    return ordinalText(state) + escapeForLine(state.name) + ": " + stageName(state.stage) + ", " +
           amountText(state) + " (" + percentText(state.done, state.total) + ")" + rateText(state, ", ");
}

ProgressDisplay::ProgressDisplay(const std::atomic<bool>& stop)
    : stop_(stop), isTerminal_(::isatty(STDERR_FILENO) == 1), began_(ProgressClock::now()), lastShown_(began_) {
}

ProgressDisplay::~ProgressDisplay() {
    end();
}

void ProgressDisplay::begin(const std::string& path, std::size_t number, std::size_t files) {
    state_ = {};
    state_.name = nameOf(path);
    state_.number = number;
    state_.files = files;
    rate_.reset();
    began_ = ProgressClock::now();
}

void ProgressDisplay::progress(UpgradeStage stage, long long done, long long total) {
    const auto now = ProgressClock::now();
    if (stage != state_.stage || total != state_.total || done < state_.done) rate_.reset();
    rate_.add(done, now);
    state_.stage = stage;
    state_.done = done;
    state_.total = total;
    state_.perSecond = rate_.perSecond();
    show(now);
}

void ProgressDisplay::show(ProgressClock::time_point now) {
    if (isTerminal_ ? now - lastShown_ < kBetweenBars : now - lastShown_ < kBetweenLines) return;
    lastShown_ = now;
    if (!isTerminal_) return toStandardError("ombrel-upgrade: " + lineText(state_) + "\n");
    isShown_ = true;
    // A character in the last column would have some terminals begin a new line.
    toStandardError("\r" + terminalText(state_, terminalColumns() - 1) + "\x1b[K");
}

void ProgressDisplay::end() {
    if (isShown_) toStandardError("\r\x1b[K");
    isShown_ = false;
}

double ProgressDisplay::seconds() const {
    return std::chrono::duration<double>(ProgressClock::now() - began_).count();
}

std::string ProgressDisplay::standing() const {
    const char* const verb = state_.stage == UpgradeStage::kConverting ? "" : stageName(state_.stage);
    return (*verb != '\0' ? std::string(verb) + " at " : std::string()) + percentText(state_.done, state_.total);
}

}  // namespace ombrel
