// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How far an upgrade is, on standard error: one line that is drawn again and again on a terminal, a line a second
// at most elsewhere.
#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <string>

#include "tools/ombrel-upgrade/upgrade_watch.h"

namespace ombrel {

using ProgressClock = std::chrono::steady_clock;

/// How fast something goes of late, from this run alone.
class RateMeter {
public:
    /// The count as it is at `now`; the first one after a reset is where it begins.
    void add(long long done, ProgressClock::time_point now);
    void reset() { *this = {}; }
    [[nodiscard]] double perSecond() const noexcept { return rate_; }

private:
    std::optional<ProgressClock::time_point> last_{};
    long long done_ = 0;
    double rate_ = 0;
    bool isMeasured_ = false;
};

struct ProgressState {
    std::string name;  ///< as it is
    UpgradeStage stage = UpgradeStage::kConverting;
    long long done = 0;
    long long total = 0;
    double perSecond = 0;
    std::size_t number = 1;  ///< which of the files
    std::size_t files = 1;
};

/// "[####......]  40 %  3/12 name  converting  120,000 of 300,000 rows  410,000 rows/s  0:04 left", of at most
/// that many columns: the name is shortened first. Of a single file there is no "3/12".
std::string terminalText(const ProgressState& state, std::size_t columns);
/// "3/12 name: converting, 120,000 of 300,000 rows (40 %), 410,000 rows/s, 0:04 left"
std::string lineText(const ProgressState& state);
/// "42 %"
std::string percentText(long long done, long long total);

class ProgressDisplay : public UpgradeWatch {
public:
    /// Asked to stop by `stop`, which a signal sets.
    explicit ProgressDisplay(const std::atomic<bool>& stop);
    ~ProgressDisplay() override;

    /// The next file, one of so many.
    void begin(const std::string& path, std::size_t number, std::size_t files);
    void progress(UpgradeStage stage, long long done, long long total) override;
    [[nodiscard]] bool stopWanted() const override { return stop_; }
    /// Takes the line away from the terminal.
    void end();

    /// Since begin().
    [[nodiscard]] double seconds() const;
    /// How far it is: "42 %", "verified to 42 %".
    [[nodiscard]] std::string standing() const;

private:
    void show(ProgressClock::time_point now);

    const std::atomic<bool>& stop_;
    bool isTerminal_;
    bool isShown_ = false;
    ProgressState state_;
    RateMeter rate_;
    ProgressClock::time_point began_;
    ProgressClock::time_point lastShown_;
};

}  // namespace ombrel
