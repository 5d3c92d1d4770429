// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
//   upgrade-once DATABASE WORKFOLDER      upgrades it; prints the seconds until the rows stand in the new file,
//   until
//                                         they have been compared, and until the end
#include <chrono>
#include <cstdio>
#include <optional>

#include "tools/ombrel-upgrade/upgrade_database.h"

namespace {

using Clock = std::chrono::steady_clock;

class Stopwatch : public ombrel::UpgradeWatch {
public:
    void progress(ombrel::UpgradeStage stage, long long done, long long total) override {
        if (stage != ombrel::UpgradeStage::kVerifying) return;
        if (!converted_) converted_ = seconds();
        if (done == total) compared_ = seconds();
    }
    [[nodiscard]] bool stopWanted() const override { return false; }
    void print() const { (void)printf("%.3f %.3f %.3f\n", converted_.value_or(0), compared_, seconds()); }

private:
    [[nodiscard]] double seconds() const { return std::chrono::duration<double>(Clock::now() - begin_).count(); }

    Clock::time_point begin_ = Clock::now();
    std::optional<double> converted_;
    double compared_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        (void)fputs("usage: upgrade-once DATABASE WORKFOLDER\n", stderr);
        return 64;
    }
    ombrel::WorkFolder work;
    Stopwatch watch;
    std::string error = work.open(argv[2]);
    if (error.empty()) error = ombrel::upgradeDatabase(argv[1], work, false, watch).error;
    watch.print();
    if (error.empty()) return 0;
    (void)fprintf(stderr, "upgrade-once: %s\n", error.c_str());
    return 1;
}
