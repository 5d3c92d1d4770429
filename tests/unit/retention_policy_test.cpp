// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which archives the retention removes.
#include "tools/ombrel/retention_policy.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <random>
#include <set>

#include "tests/fake/platform_test.h"
#include "tools/ombrel/archive_name.h"

namespace ombrel::test::retention_policy {

namespace {

constexpr const char* kToday = "2024-03-20";

RetainedArchive archive(const std::string& lastDay, unsigned long long bytes = 10, bool isBusy = false) {
    return {"/srv/" + lastDay, lastDay, lastDay, 0, bytes, isBusy};
}

std::vector<RetainedArchive> archives(const Lines& lastDays) {
    std::vector<RetainedArchive> all;
    for (const std::string& day : lastDays)
        all.push_back(archive(day));
    return all;
}

/// "2024-03-01 days, ...": what goes, in its order.
std::string removed(const std::vector<RetainedArchive>& all, const RetentionPlan& plan) {
    std::string text;
    for (const Removal& removal : plan.removals) {
        text += (text.empty() ? "" : ", ") + all[removal.index].path.substr(5) + " " +
                removalReasonName(removal.reason);
    }
    return text;
}

const Lines kDays = {"2024-03-19", "2024-03-01", "2024-03-20", "2024-03-10", "2024-03-05", "2024-03-18"};

struct PolicyCase {
    std::string name;
    RetentionSettings settings;
    std::optional<unsigned long long> free;
    std::string removed;
    unsigned long long over = 0;
    unsigned long long missing = 0;
};

class Policy : public ::testing::TestWithParam<PolicyCase> {};

TEST_P(Policy, RemovesTheOldestFirst) {
    const std::vector<RetainedArchive> all = archives(kDays);
    const RetentionPlan plan = planRetention(all, GetParam().free, kToday, GetParam().settings);
    EXPECT_EQ(removed(all, plan), GetParam().removed);
    EXPECT_EQ(plan.overBytes, GetParam().over);
    EXPECT_EQ(plan.missingFreeBytes, GetParam().missing);
}

INSTANTIATE_TEST_SUITE_P(
    Limits, Policy,
    ::testing::Values(
        PolicyCase{"Off", {}, 0, "", 0, 0},
        PolicyCase{"Days", {10, 0, 0}, 0, "2024-03-01 days, 2024-03-05 days", 0, 0},
        PolicyCase{"DaysToTheDay", {15, 0, 0}, 0, "2024-03-01 days", 0, 0},
        PolicyCase{
            "OneDay", {1, 0, 0}, 0, "2024-03-01 days, 2024-03-05 days, 2024-03-10 days, 2024-03-18 days", 0, 0},
        PolicyCase{"SizeThatFits", {0, 60, 0}, 0, "", 0, 0},
        PolicyCase{"Size", {0, 59, 0}, 0, "2024-03-01 size", 0, 0},
        PolicyCase{"SizeOfLess",
                   {0, 5, 0},
                   0,
                   "2024-03-01 size, 2024-03-05 size, 2024-03-10 size, 2024-03-18 size",
                   15,
                   0},
        PolicyCase{"Free", {0, 0, 115}, 100, "2024-03-01 free_space, 2024-03-05 free_space", 0, 0},
        PolicyCase{"FreeEnough", {0, 0, 100}, 100, "", 0, 0},
        PolicyCase{"FreeUnknown", {0, 0, 100}, std::nullopt, "", 0, 0},
        PolicyCase{"FreeNever",
                   {0, 0, 1000},
                   0,
                   "2024-03-01 free_space, 2024-03-05 free_space, 2024-03-10 free_space, 2024-03-18 free_space",
                   0,
                   960},
        PolicyCase{"OneAfterTheOther",
                   {18, 49, 120},
                   95,
                   "2024-03-01 days, 2024-03-05 size, 2024-03-10 free_space",
                   0,
                   0}),
    CaseName());

TEST(PolicyProtects, TheTwoNewestLastDaysHoweverOld) {
    const auto all = archives({"2020-01-03", "2020-01-02", "2020-01-02", "2020-01-01"});
    EXPECT_EQ(removed(all, planRetention(all, 0, kToday, {1, 1, 1})), "2020-01-01 days");
}

TEST(PolicyProtects, TodayAndYesterdayAndWhatIsToCome) {
    const auto all = archives({"2024-03-20", "2024-03-19", "2024-03-18", "2031-01-01", "2031-01-02"});
    EXPECT_EQ(removed(all, planRetention(all, 0, kToday, {1, 1, 1})), "2024-03-18 days");
}

TEST(PolicyProtects, WhatSomebodyIsAtWorkOnAndWhoseDaysNobodyKnew) {
    auto all = archives({"1970-01-01", "2024-03-19", "2024-03-20", "2024-02-01"});
    all.push_back(archive("2024-01-01", 10, true));
    EXPECT_EQ(removed(all, planRetention(all, 0, kToday, {1, 0, 0})), "2024-02-01 days");
}

TEST(PolicyOrders, TheSameDaysByTheirNumbers) {
    auto all = archives({"2024-03-19", "2024-03-20"});
    all.push_back({"/srv/b_10", "2024-02-01", "2024-02-02", 10, 10, false});
    all.push_back({"/srv/b_2", "2024-02-01", "2024-02-02", 2, 10, false});
    all.push_back({"/srv/a", "2024-01-01", "2024-02-02", 20, 10, false});
    EXPECT_EQ(removed(all, planRetention(all, 0, kToday, {0, 1, 0})), "a size, b_2 size, b_10 size");
}

std::string dayText(long long number) {
    const std::chrono::year_month_day day{std::chrono::sys_days(std::chrono::days(number))};
    char text[16] = {};
    (void)std::snprintf(text, sizeof text, "%04d-%02u-%02u", int(day.year()), unsigned(day.month()),
                        unsigned(day.day()));
    return text;
}

/// Whatever there is: what must stay stays, the oldest go first, and a limit is broken afterwards only when
/// nothing is left that may go.
class Property {
public:
    explicit Property(unsigned seed) : random_(seed) {
        today_ = *dayNumber(kToday);
        for (long long i = pick(0, 25); i > 0; --i) {
            const long long last = today_ - pick(0, 40) + 3;
            const std::string first = dayText(last - pick(0, 5));
            all_.push_back({"/srv/" + std::to_string(i), first, dayText(last), int(pick(0, 3)),
                            static_cast<unsigned long long>(pick(0, 100)), pick(0, 9) == 0});
        }
        settings_ = {pick(0, 30), static_cast<unsigned long long>(pick(0, 1500)),
                     static_cast<unsigned long long>(pick(0, 1500))};
        free_ = static_cast<unsigned long long>(pick(0, 1000));
    }

    void check() {
        const RetentionPlan plan = planRetention(all_, free_, kToday, settings_);
        std::set<std::size_t> gone;
        for (const Removal& removal : plan.removals) {
            EXPECT_TRUE(gone.insert(removal.index).second) << "twice";
            EXPECT_TRUE(mayGo(removal.index));
        }
        unsigned long long kept = 0;
        unsigned long long freed = 0;
        bool isAnyLeft = false;
        for (std::size_t i = 0; i < all_.size(); ++i) {
            (gone.contains(i) ? freed : kept) += all_[i].bytes;
            if (gone.contains(i) || !mayGo(i)) continue;
            isAnyLeft = true;
            EXPECT_FALSE(settings_.keepDays > 0 && *dayNumber(all_[i].lastDay) < today_ - settings_.keepDays);
            for (const std::size_t other : gone)
                EXPECT_LE(all_[other].lastDay, all_[i].lastDay) << "an older one stays";
        }
        const bool isOver = settings_.keepBytes > 0 && kept > settings_.keepBytes;
        const bool isMissing = settings_.freeBytes > free_ + freed;
        EXPECT_FALSE(isAnyLeft && (isOver || isMissing));
        EXPECT_EQ(plan.missingFreeBytes, isMissing ? settings_.freeBytes - free_ - freed : 0);
        expectNoneTooMany(plan);
    }

private:
    long long pick(long long least, long long most) {
        return std::uniform_int_distribution<long long>(least, most)(random_);
    }
    [[nodiscard]] bool mayGo(std::size_t index) const {
        std::set<std::string> days;
        for (const RetainedArchive& one : all_)
            days.insert(one.lastDay);
        const std::string& day = all_[index].lastDay;
        const auto newer = std::distance(days.upper_bound(day), days.end());
        return newer >= 2 && *dayNumber(day) < today_ - 1 && !all_[index].isBusy;
    }
    /// The last one to go for want of room was still needed.
    void expectNoneTooMany(const RetentionPlan& plan) const {
        if (plan.removals.empty()) return;
        const Removal last = plan.removals.back();
        unsigned long long kept = 0;
        unsigned long long freed = 0;
        for (std::size_t i = 0; i < all_.size(); ++i) {
            const bool isGone = std::any_of(plan.removals.begin(), plan.removals.end() - 1,
                                            [i](const Removal& removal) { return removal.index == i; });
            (isGone ? freed : kept) += all_[i].bytes;
        }
        EXPECT_TRUE(last.reason != RemovalReason::kSize || kept > settings_.keepBytes);
        EXPECT_TRUE(last.reason != RemovalReason::kFreeSpace || free_ + freed < settings_.freeBytes);
    }

    std::mt19937 random_;
    long long today_ = 0;
    std::vector<RetainedArchive> all_;
    RetentionSettings settings_;
    unsigned long long free_ = 0;
};

TEST(PolicyHolds, WhateverThereIs) {
    for (unsigned seed = 0; seed < 2000 && !::testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        Property(seed).check();
    }
}

}  // namespace

}  // namespace ombrel::test::retention_policy
