// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Deciding which databases are due, and archiving several.
#include "tests/unit/archiver_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr long long kNow = 1712345678;
constexpr long long kMebibyte = 1048576;

struct DueCase {
    std::string name;
    int count;
    int interval;
    int size;
    long long rows;
    long long age;
    long long bytes;
    bool due;
};

class Due : public ArchiverTest, public ::testing::WithParamInterface<DueCase> {};

TEST_P(Due, FollowsTheRules) {
    const DueCase& c = GetParam();
    platform.now = kNow;
    FakeDatabase& db = platform.addDatabase(kSharedDb);
    db.count = c.rows;
    db.start = kNow - c.age;
    platform.reportedSizes[kSharedDb] = c.bytes;
    archiver.ArchCount = c.count;
    archiver.ArchInterval = c.interval;
    archiver.ArchSize = c.size;
    EXPECT_EQ(paths(archiver.ArchiveCheck()), c.due ? Lines{kSharedDb} : Lines{});
    EXPECT_TRUE(platform.exists(kSharedDb));
}

constexpr long long kManyRows = 5000000000;

INSTANTIATE_TEST_SUITE_P(Count, Due,
                         ::testing::Values(DueCase{"Reached", 1000, 0, 0, 1000, 0, 0, false},
                                           DueCase{"Exceeded", 1000, 0, 0, 1001, 0, 0, true},
                                           DueCase{"Beyond32Bits", 2147483647, 0, 0, kManyRows, 0, 0, true},
                                           DueCase{"NotNarrowed", 1000, 0, 0, 4294967296, 0, 0, true},
                                           DueCase{"EmptyDatabase", 1, 0, 0, 0, 0, 0, false},
                                           DueCase{"NegativeThresholdIsOn", -5, 0, 0, 0, 0, 0, true},
                                           DueCase{"NegativeThresholdAndFailedCount", -5, 0, 0, -1, 0, 0, true},
                                           DueCase{"NegativeThresholdNotExceeded", -1, 0, 0, -1, 0, 0, false},
                                           DueCase{"FailedCount", 1, 0, 0, -1, 0, 0, false}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(Age, Due,
                         ::testing::Values(DueCase{"Reached", 0, 86400, 0, 5, 86400, 0, false},
                                           DueCase{"Exceeded", 0, 86400, 0, 5, 86401, 0, true},
                                           DueCase{"EmptyDatabaseIsOldToo", 0, 86400, 0, 0, 86401, 0, true},
                                           DueCase{"FromTheFuture", 0, 86400, 0, 5, -100000, 0, false},
                                           DueCase{"NegativeThresholdIsOn", 0, -10, 0, 5, 0, 0, true},
                                           DueCase{"NegativeThresholdAndFuture", 0, -10, 0, 5, -10, 0, false},
                                           DueCase{"DifferenceBeyond32Bits", 0, 2147483647, 0, 5, 4294967296 + 5,
                                                   0, true}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(Size, Due,
                         ::testing::Values(DueCase{"ReachedAfterTruncation", 0, 0, 5, 5, 0, 6291455, false},
                                           DueCase{"Exceeded", 0, 0, 5, 5, 0, 6291456, true},
                                           DueCase{"NegativeThresholdIsOn", 0, 0, -1, 5, 0, 0, true},
                                           DueCase{"NarrowedSizeIsComparedAsItIs", 0, 0, 5, 5, 0,
                                                   2147483648 * kMebibyte, false}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(Together, Due,
                         ::testing::Values(DueCase{"AllOff", 0, 0, 0, kManyRows, kNow, 1LL << 40, false},
                                           DueCase{"NoneHolds", 10, 10, 10, 10, 10, 10, false},
                                           DueCase{"OnlyTheLastHolds", 10, 10, 1, 10, 10, 2097152, true},
                                           DueCase{"OnlyTheMiddleHolds", 10, 10, 1, 10, 11, 0, true},
                                           DueCase{"AllHold", 1, 1, 1, 2, 2, 2097152, true}),
                         CaseName());

class Check : public ArchiverTest {
protected:
    Check() {
        platform.now = kNow;
        platform.addDatabase(kSharedDb, march());
    }
    Lines probes() { return platform.calls.linesOf({"DBInfoCntGet", "DBInfoStartGet", "stat64"}); }
};

TEST_F(Check, ReadsTheClockOnceAndFirst) {
    platform.addDatabase(kLocalDb, march());
    archiver.ArchInterval = 1;
    EXPECT_EQ(archiver.ArchiveCheck().size(), 2U);
    EXPECT_EQ(platform.calls.lines().front(), "time()");
    EXPECT_EQ(platform.calls.count("time"), 1);
}

TEST_F(Check, ProbesNothingWhenAllRulesAreOff) {
    EXPECT_THAT(archiver.ArchiveCheck(), IsEmpty());
    EXPECT_THAT(probes(), IsEmpty());
    EXPECT_EQ(platform.calls.count("DBHandler"), 0);
}

TEST_F(Check, TriesCountThenAgeThenSize) {
    archiver.ArchCount = 1000;
    archiver.ArchInterval = 2000000000;
    archiver.ArchSize = 1000;
    EXPECT_THAT(archiver.ArchiveCheck(), IsEmpty());
    EXPECT_THAT(probes(), ElementsAre("DBInfoCntGet()", "DBInfoStartGet()", "stat64(\"" + kSharedDb + "\")"));
}

TEST_F(Check, TheFirstRuleThatHoldsDecides) {
    archiver.ArchCount = 1;
    archiver.ArchInterval = 1;
    archiver.ArchSize = 1;
    EXPECT_EQ(archiver.ArchiveCheck().size(), 1U);
    EXPECT_THAT(probes(), ElementsAre("DBInfoCntGet()"));
    platform.calls.clear();
    archiver.ArchCount = 1000;
    EXPECT_EQ(archiver.ArchiveCheck().size(), 1U);
    EXPECT_THAT(probes(), ElementsAre("DBInfoCntGet()", "DBInfoStartGet()"));
}

TEST_F(Check, KeepsTheOrderOfTheWorkingDatabases) {
    archiver.ByDevice = 1;
    archiver.ArchCount = 1;
    for (const char* host : {"alpha", "beta", "gamma"})
        platform.addDatabase(hostDb(host), march());
    platform.database(hostDb("beta"))->count = 1;
    platform.addDatabase(kLocalDb, march());
    EXPECT_THAT(paths(archiver.ArchiveCheck()), ElementsAre(kLocalDb, hostDb("gamma"), hostDb("alpha")));
}

TEST_F(Check, ReturnsTheWholeRecord) {
    archiver.ArchCount = 1;
    const auto due = archiver.ArchiveCheck();
    ASSERT_EQ(due.size(), 1U);
    EXPECT_EQ(due.front().strDevice, "_ARCH");
    EXPECT_EQ(due.front().strDBName, "VESKSYSLOGDB__ARCH.DB");
}

TEST_F(Check, SkipsADatabaseThatHasVanishedMeanwhile) {
    archiver.ArchCount = -5;
    // The first test finds the file, the second one, right before the rules, does not.
    platform.failCall("VLIBCFileExist", 3);
    EXPECT_THAT(archiver.ArchiveCheck(), IsEmpty());
    EXPECT_THAT(probes(), IsEmpty());
}

TEST_F(Check, TakesAnErrorOfTheTestForPresent) {
    archiver.ArchCount = 1;
    platform.existAnswers[kSharedDb] = -1;
    EXPECT_THAT(paths(archiver.ArchiveCheck()), ElementsAre(kSharedDb));
}

TEST_F(Check, ADatabaseThatCannotBeOpenedIsDueByAgeAlone) {
    platform.database(kSharedDb)->opens = false;
    archiver.ArchCount = 1;
    EXPECT_THAT(archiver.ArchiveCheck(), IsEmpty());
    archiver.ArchInterval = 86400;
    EXPECT_THAT(paths(archiver.ArchiveCheck()), ElementsAre(kSharedDb));
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to connect to database", "0 Fail to connect to database",
                                               "0 Fail to connect to database"));
}

TEST_F(Check, AFailedSizeMakesNothingDue) {
    archiver.ArchSize = 1;
    platform.failCall("stat64");
    EXPECT_THAT(archiver.ArchiveCheck(), IsEmpty());
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to state file status"));
}

TEST_F(Check, DoesNotLookAtTheTimeOfTheLastArchiving) {
    archiver.ArchInterval = 10;
    archiver.LastArchTime = 1;
    platform.database(kSharedDb)->start = kNow - 5;
    EXPECT_THAT(archiver.ArchiveCheck(), IsEmpty());
}

TEST_F(Check, ArchivesNothingItself) {
    archiver.ArchCount = 1;
    (void)archiver.ArchiveCheck();
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kSharedDb));
    EXPECT_THAT(platform.events, IsEmpty());
    EXPECT_EQ(platform.calls.count("VLIBServicectlRestart"), 0);
}

class Several : public ArchiverTest {
protected:
    Several() { archiver.ByDevice = 1; }

    std::list<_SYSLOG_WORKING_DB_tag> hosts(const std::vector<std::string>& names, long long rows = 5) {
        std::list<_SYSLOG_WORKING_DB_tag> list;
        for (const std::string& name : names) {
            platform.addDatabase(hostDb(name), march(rows));
            list.push_back(record(name, hostDb(name)));
        }
        return list;
    }
    static std::string archiveOf(const std::string& host) {
        return "/volume1/logs/" + host + "/2024-03-03_2024-03-09.DB";
    }
};

TEST_F(Several, AreArchivedOneAfterTheOther) {
    auto list = hosts({"b", "a", "c"});
    EXPECT_EQ(archiver.DoArchive(list, false), 0);
    EXPECT_THAT(platform.events, ElementsAre("finished " + archiveOf("b"), "finished " + archiveOf("a"),
                                             "finished " + archiveOf("c")));
    EXPECT_EQ(platform.calls.count("VLIBServicectlRestart"), 3);
    EXPECT_EQ(list.size(), 3U);
    EXPECT_EQ(list.front().strDevice, "b");
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(Several, OneFailureDoesNotStopTheOthers) {
    auto list = hosts({"a", "b", "c"});
    platform.failCall("VLIBServicectlRestart", 2);
    EXPECT_EQ(archiver.DoArchive(list, true), -1);
    EXPECT_THAT(platform.events, ElementsAre("finished " + archiveOf("a"), "failed " + archiveOf("b"),
                                             "finished " + archiveOf("c")));
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to archive database " + hostDb("b")));
}

TEST_F(Several, TheLastFailureCountsAsMuchAsTheFirst) {
    auto list = hosts({"a", "b"});
    platform.failCall("VLIBServicectlRestart", 1);
    EXPECT_EQ(archiver.DoArchive(list, false), -1);
    list = hosts({"c", "d"});
    platform.failCall("VLIBServicectlRestart", 2);
    EXPECT_EQ(archiver.DoArchive(list, false), -1);
    list = hosts({"e", "f"});
    platform.failEveryCall("VLIBServicectlRestart");
    EXPECT_EQ(archiver.DoArchive(list, false), -1);
}

TEST_F(Several, WithoutRowsAreSkippedInSilence) {
    auto list = hosts({"a"}, 0);
    EXPECT_EQ(archiver.DoArchive(list, false), 0);
    EXPECT_TRUE(platform.exists(hostDb("a")));
    EXPECT_THAT(platform.events, IsEmpty());
    EXPECT_THAT(platform.messages, IsEmpty());
    EXPECT_EQ(platform.calls.count("Logger"), 0);
}

TEST_F(Several, ThatAreGoneAreSkippedInSilence) {
    std::list<_SYSLOG_WORKING_DB_tag> list = {record("a", hostDb("a"))};
    EXPECT_EQ(archiver.DoArchive(list, false), 0);
    EXPECT_THAT(platform.events, IsEmpty());
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(Several, ThatCannotBeOpenedAreSkipped) {
    auto list = hosts({"a", "b"});
    platform.database(hostDb("a"))->opens = false;
    EXPECT_EQ(archiver.DoArchive(list, false), 0);
    EXPECT_THAT(platform.events, ElementsAre("finished " + archiveOf("b")));
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to connect to database"));
}

TEST_F(Several, AreNoneInAnEmptyList) {
    std::list<_SYSLOG_WORKING_DB_tag> none;
    EXPECT_EQ(archiver.DoArchive(none, false), 0);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

TEST_F(Several, AllOfThemAreArchivedWhateverTheRules) {
    (void)hosts({"a"}, 1);
    (void)hosts({"b"}, 0);
    platform.addDatabase(kLocalDb, march(1));
    archiver.ArchCount = 1000000;
    EXPECT_EQ(archiver.ArchiveAll(), 0);
    EXPECT_THAT(platform.events, ElementsAre("finished /volume1/logs/local/2024-03-03_2024-03-09.DB",
                                             "finished " + archiveOf("a")));
    EXPECT_TRUE(platform.exists(hostDb("b")));
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(Several, AllOfNoneIsASuccess) {
    EXPECT_EQ(archiver.ArchiveAll(), 0);
    EXPECT_THAT(platform.messages, IsEmpty());
    EXPECT_EQ(platform.calls.count("time"), 0);
}

TEST_F(Several, AllReportsThatOneFailed) {
    (void)hosts({"a", "b"});
    platform.failCall("VESKFileCopy", 1);
    EXPECT_EQ(archiver.ArchiveAll(), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to move database: " + hostDb("b") + " to " + archiveOf("b"),
                                               "0 Fail to archive database " + hostDb("b"),
                                               "0 Fail to archive all working database"));
    EXPECT_THAT(platform.events, ElementsAre("failed " + archiveOf("b"), "finished " + archiveOf("a")));
}

TEST_F(Several, TheDueOnesGoStraightToArchiving) {
    (void)hosts({"a", "b"});
    platform.database(hostDb("b"))->count = 3;
    archiver.ArchCount = 4;
    auto due = archiver.ArchiveCheck();
    EXPECT_EQ(archiver.DoArchive(due, false), 0);
    EXPECT_THAT(platform.events, ElementsAre("finished " + archiveOf("a")));
    EXPECT_TRUE(platform.exists(hostDb("b")));
}

}  // namespace

}  // namespace ombrel::test
