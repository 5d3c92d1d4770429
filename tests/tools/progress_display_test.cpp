// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/progress_display.h"

#include <gmock/gmock.h>

namespace ombrel {
namespace {

using std::chrono::milliseconds;
using ::testing::DoubleNear;
using ::testing::HasSubstr;
using ::testing::StartsWith;

ProgressState sample() {
    return {"2024-03-03_2024-03-09.DB", UpgradeStage::kConverting, 120'000, 300'000, 45'000};
}

TEST(ProgressTexts, OfATerminal) {
    EXPECT_EQ(terminalText(sample(), 200),
              "[########............]  40 %  2024-03-03_2024-03-09.DB  converting  120,000 of 300,000 rows  "
              "45,000 rows/s  0:04 left");
    EXPECT_EQ(terminalText(sample(), 110),
              "[########............]  40 %  2024-03..03-09.DB  converting  120,000 of 300,000 rows  "
              "45,000 rows/s  0:04 left");
    EXPECT_EQ(terminalText(sample(), 60), "[########............]  40 %  202...DB  converting  120,000 ");
    EXPECT_EQ(terminalText(sample(), 0), "");
    ProgressState third = sample();
    third.number = 3;
    third.files = 12;
    EXPECT_THAT(terminalText(third, 200), HasSubstr("  40 %  3/12 2024-03-03_2024-03-09.DB  converting"));
    EXPECT_EQ(terminalText(third, 110).size(), 110U);
    EXPECT_THAT(lineText(third), StartsWith("3/12 2024-03-03_2024-03-09.DB: converting, "));
}

TEST(ProgressTexts, OfALine) {
    EXPECT_EQ(lineText(sample()),
              "2024-03-03_2024-03-09.DB: converting, 120,000 of 300,000 rows (40 %), 45,000 rows/s, 0:04 left");
    EXPECT_EQ(lineText({"a\x1b[31m\n.ZIP", UpgradeStage::kPacking, 1'500'000, 3'000'000, 5e5}),
              "a\\x1b[31m\\x0a.ZIP: packing, 1.5 MB of 3.0 MB (50 %), 0.5 MB/s, 0:03 left");
    EXPECT_EQ(lineText({"a", UpgradeStage::kVerifying, 0, 0, 0}), "a: verifying, 0 of 0 rows (0 %)");
    EXPECT_EQ(lineText({"a", UpgradeStage::kUnpacking, -1, 5, 0}), "a: unpacking, 0.0 MB of 0.0 MB (0 %)");
}

TEST(RateMeter, CountsFromWhereThisRunBegan) {
    const ProgressClock::time_point start{};
    RateMeter rate;
    rate.add(1'000'000, start);
    EXPECT_EQ(rate.perSecond(), 0);
    rate.add(1'001'000, start + milliseconds(100));
    EXPECT_THAT(rate.perSecond(), DoubleNear(10'000, 1));
    rate.reset();
    EXPECT_EQ(rate.perSecond(), 0);
}

TEST(RateMeter, FollowsSlowly) {
    ProgressClock::time_point now{};
    RateMeter rate;
    long long done = 0;
    rate.add(done, now);
    for (int i = 0; i < 10; ++i)
        rate.add(done += 10'000, now += milliseconds(100));
    EXPECT_THAT(rate.perSecond(), DoubleNear(100'000, 1));
    rate.add(done, now += milliseconds(100));
    EXPECT_GT(rate.perSecond(), 90'000) << "one wait for the disk";
    for (int i = 0; i < 100; ++i)
        rate.add(done += 1'000, now += milliseconds(100));
    EXPECT_THAT(rate.perSecond(), DoubleNear(10'000, 1'000));
    rate.add(done, now);
    EXPECT_GT(rate.perSecond(), 0) << "twice at the same moment";
}

TEST(ProgressDisplay, WithoutATerminalSaysALineASecond) {
    const std::atomic<bool> stop{false};
    ::testing::internal::CaptureStderr();
    ProgressDisplay display(stop);
    display.begin("/srv/a.DB", 1, 1);
    for (int i = 0; i < 1000; ++i)
        display.progress(UpgradeStage::kConverting, i, 1000);
    display.end();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "") << "it took less than a second";
    EXPECT_EQ(display.standing(), "99 %");
    display.progress(UpgradeStage::kVerifying, 500, 1000);
    EXPECT_EQ(display.standing(), "verifying at 50 %");
}

TEST(ProgressDisplay, StopsWhenItIsAskedTo) {
    std::atomic<bool> stop{false};
    const ProgressDisplay display(stop);
    EXPECT_FALSE(display.stopWanted());
    stop = true;
    EXPECT_TRUE(display.stopWanted());
}

}  // namespace
}  // namespace ombrel
