// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-upgrade/upgrade_plan.h"

#include <gmock/gmock.h>

#include <map>

namespace ombrel {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr unsigned long long kMB = 1'000'000;
constexpr unsigned long long kReserve = 72ULL << 20;  // 64 MiB that stay free, 8 MiB for a journal
constexpr unsigned long long kTables = 128ULL << 10;

FoundDatabase database(const std::string& path, unsigned long long bytes, dev_t device = 1) {
    FoundDatabase file;
    file.path = path;
    file.bytes = bytes;
    file.rows = 1000;
    file.device = device;
    return file;
}

FoundDatabase zip(const std::string& path, unsigned long long bytes, unsigned long long unpacked) {
    FoundDatabase file = database(path, bytes);
    file.kind = OldKind::kZip;
    file.databases = 2;
    file.unpackedBytes = unpacked;
    return file;
}

class Volumes {
public:
    explicit Volumes(std::map<std::string, unsigned long long> freeBytes) : free_(std::move(freeBytes)) {}
    [[nodiscard]] SpaceCheck check() const {
        return [this](const std::string& folder, unsigned long long bytes) { return free_.at(folder) >= bytes; };
    }
    [[nodiscard]] FreeBytes bytes() const {
        return [this](const std::string& folder) { return free_.at(folder); };
    }

private:
    std::map<std::string, unsigned long long> free_;
};

TEST(UpgradePlan, OldFilesThatStayAddUp) {
    const auto needs = volumeNeeds({database("/a/1.DB", 40 * kMB), database("/a/2.DB", 80 * kMB)});
    ASSERT_EQ(needs.size(), 1U);
    EXPECT_EQ(needs[0].folder, "/a");
    EXPECT_EQ(needs[0].needed, 150 * kMB + 2 * kTables + kReserve);
}

TEST(UpgradePlan, OldFilesThatGoLeaveRoomForTheNext) {
    const auto needs = volumeNeeds({database("/a/1.DB", 40 * kMB), database("/a/2.DB", 80 * kMB)});
    EXPECT_EQ(needs.at(0).neededRemovingOld, 10 * kMB + 100 * kMB + 2 * kTables + kReserve);
    const auto largestFirst = volumeNeeds({database("/a/1.DB", 80 * kMB), database("/a/2.DB", 4 * kMB)});
    EXPECT_EQ(largestFirst.at(0).neededRemovingOld, 100 * kMB + kTables + kReserve);
}

TEST(UpgradePlan, WhatAnEarlierRunHasMadeIsThere) {
    FoundDatabase begun = database("/a/1.DB", 40 * kMB);
    begun.workBytes = 30 * kMB;
    EXPECT_EQ(volumeNeeds({begun}).at(0).needed, 20 * kMB + kTables + kReserve);
    begun.workBytes = 400 * kMB;
    EXPECT_EQ(volumeNeeds({begun}).at(0).needed, kReserve);
}

TEST(UpgradePlan, AZipFileIsUnpackedAndPackedAgain) {
    const auto needs = volumeNeeds({zip("/a/1.ZIP", 4 * kMB, 40 * kMB), database("/a/2.DB", 4 * kMB)});
    EXPECT_EQ(needs.at(0).needed, 40 * kMB + 50 * kMB + 5 * kMB + 2 * kTables + kReserve)
        << "more than what stays of it and the next file take";
}

TEST(UpgradePlan, EachFileSystemIsByItself) {
    const auto needs = volumeNeeds(
        {database("/a/1.DB", 40 * kMB, 1), database("/b/x/1.DB", 4 * kMB, 2), database("/c/1.DB", 4 * kMB, 1)});
    ASSERT_EQ(needs.size(), 2U);
    EXPECT_EQ(needs[0].folder, "/a");
    EXPECT_EQ(needs[0].needed, 55 * kMB + 2 * kTables + kReserve);
    EXPECT_EQ(needs[1].folder, "/b/x");
    EXPECT_EQ(needs[1].needed, 5 * kMB + kTables + kReserve);
    EXPECT_THAT(volumeNeeds({}), IsEmpty());
}

TEST(UpgradePlan, SaysWhereThereIsTooLittleSpaceAndWhatHelps) {
    const std::vector<VolumeNeed> needs{{1, "/a", 300 * kMB, 200 * kMB}, {2, "/b", 300 * kMB, 250 * kMB}};
    const auto problems = [&](unsigned long long freeA, unsigned long long freeB, bool removeOld) {
        const Volumes volumes({{"/a", freeA}, {"/b", freeB}});
        return spaceProblems(needs, removeOld, volumes.check(), volumes.bytes());
    };
    EXPECT_THAT(problems(300 * kMB, 400 * kMB, false), IsEmpty());
    EXPECT_THAT(problems(299 * kMB, 100 * kMB, false),
                ElementsAre("too little space at /a: 300.0 MB needed, 299.0 MB free; use --remove-old, free some "
                            "space, or name fewer files",
                            "too little space at /b: 300.0 MB needed, 100.0 MB free; free some space, or name "
                            "fewer files"));
    EXPECT_THAT(problems(200 * kMB, 250 * kMB, true), IsEmpty());
    EXPECT_THAT(problems(199 * kMB, 250 * kMB, true),
                ElementsAre(AllOf(HasSubstr("200.0 MB needed"), Not(HasSubstr("--remove-old")))));
}

TEST(UpgradePlan, ShowsWhatBecomesOfEachFile) {
    FoundDatabase begun = database("/a/VESKSYSLOGDB__ARCH.DB", 40 * kMB);
    begun.rows = 1'000'000;
    begun.workRows = 429'999;
    FoundDatabase setAside = database("/a/X.DB.old-1", kMB);
    setAside.kind = OldKind::kSetAside;
    const std::vector<FoundDatabase> files{begun, setAside, database("/a/b\n\x1b[31m.DB", kMB),
                                           zip("/a/c.ZIP", kMB, 4 * kMB)};
    const Volumes volumes({{"/a", 4700 * kMB}});
    const std::string text = planText(
        files, volumeNeeds(files), false, [](const std::string&) { return "/a/2024-03-03_2024-03-09.DB"; },
        volumes.bytes());
    EXPECT_EQ(
        text,
        "FILE                           ROWS     SIZE    NEEDS  WHAT\n"
        "/a/VESKSYSLOGDB__ARCH.DB  1,000,000  40.0 MB  50.1 MB  goes on at 42 %, the old file stays as "
        "VESKSYSLOGDB__ARCH.DB.v1\n"
        "/a/X.DB.old-1                 1,000   1.0 MB   1.4 MB  is converted, becomes "
        "2024-03-03_2024-03-09.DB, the old file stays as 2024-03-03_2024-03-09.DB.v1\n"
        "/a/b\\x0a\\x1b[31m.DB           1,000   1.0 MB   1.4 MB  is converted, the old file stays as "
        "b\\x0a\\x1b[31m.DB.v1\n"
        "/a/c.ZIP                          -   1.0 MB  10.5 MB  2 old databases in it, the old file stays as "
        "c.ZIP.v1\n"
        "/a: 138.9 MB needed, 4.7 GB free\n");
    EXPECT_THAT(planText(
                    {setAside}, {}, true, [](const std::string&) { return ""; }, volumes.bytes()),
                EndsWith("stays: no archive name is free for it\n"));
    EXPECT_THAT(planText({begun}, {}, true, nullptr, volumes.bytes()),
                AllOf(StartsWith("FILE "), EndsWith("goes on at 42 %, the old file goes\n")));
}

}  // namespace
}  // namespace ombrel
