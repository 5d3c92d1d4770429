// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Counting the rows of the old and of the new database of an upgrade.
#include "ombrel/utils_updater.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kCountRows = "SELECT COUNT(*) FROM logs";
constexpr const char* kNoConnection = "err utils_updater:182 Fail to connect to database";
constexpr const char* kNoCount = "err utils_updater:187 Fail to get log count";
constexpr const char* kNoTotal = "err utils_updater:203 Fail to get old database total count";
constexpr const char* kNoProgress = "err utils_updater:210 Fail to get database upgrade progress";
constexpr const char* kInvalidPath = "err Invalid syslog db path!";
constexpr const char* kNotFetched = "err Fail to fetch row";

class UpgradeProgress : public PlatformTest {
protected:
    void SetUp() override {
        FakeDatabase& old = platform.addDatabase(oldPath);
        old.version = 1;
        old.days = {"2019-04-30", "2019-05-01", "2019-05-02"};
        platform.addDatabase(newPath).rows.resize(2);
    }
    void TearDown() override {
        EXPECT_THAT(platform.messages, IsEmpty());
        EXPECT_EQ(oldPath, "/volume1/old.DB");
        EXPECT_EQ(newPath, "/volume1/new.DB");
        PlatformTest::TearDown();
    }
    FakeDatabase& old() { return *platform.database(oldPath); }
    FakeDatabase& fresh() { return *platform.database(newPath); }

    std::string oldPath = "/volume1/old.DB";
    std::string newPath = "/volume1/new.DB";
};

// ---- rows of the old database

TEST_F(UpgradeProgress, TheTotalIsTheRowsOfTheOldDatabase) {
    EXPECT_EQ(SyslogUpdaterOldDbTotalGet(oldPath), 3);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(UpgradeProgress, TheTotalIsAskedForInThisOrder) {
    (void)SyslogUpdaterOldDbTotalGet(oldPath);
    EXPECT_THAT(
        platform.calls.lines(),
        ElementsAre("VESKDBConnect(null, null, null, \"/volume1/old.DB\")",
                    std::string("VESKDBExecute(\"") + kCountRows + "\")", "VESKDBFetchRow()", "VESKDBNumRows()",
                    "VESKDBFetchField(0, \"COUNT(*)\")", "VESKDBFreeResult()", "VESKDBClose()"));
}

TEST_F(UpgradeProgress, TheTotalIsTakenFromTheRowThatWasFetchedWhateverItsIndex) {
    platform.firstRow = 3;
    EXPECT_EQ(SyslogUpdaterOldDbTotalGet(oldPath), 3);
    EXPECT_THAT(platform.calls.linesOf({"VESKDBFetchField"}), ElementsAre("VESKDBFetchField(3, \"COUNT(*)\")"));
}

struct BadPath {
    std::string name;
    std::string path;
};

class UpgradeTotalBadPath : public UpgradeProgress, public ::testing::WithParamInterface<BadPath> {};

TEST_P(UpgradeTotalBadPath, IsRefusedBeforeAnyConnection) {
    std::string path = GetParam().path;
    EXPECT_EQ(SyslogUpdaterOldDbTotalGet(path), -1);
    EXPECT_EQ(path, GetParam().path);
    EXPECT_THAT(platform.syslogLines, ElementsAre(kInvalidPath));
    EXPECT_EQ(platform.calls.count("VESKDBConnect"), 0);
}

INSTANTIATE_TEST_SUITE_P(Paths, UpgradeTotalBadPath,
                         ::testing::Values(BadPath{"Empty", ""}, BadPath{"Relative", "logs.db"},
                                           BadPath{"DotSlash", "./logs.db"},
                                           BadPath{"SlashLater", "volume1/old.DB"},
                                           BadPath{"Blank", " /volume1/old.DB"}),
                         CaseName());

struct FailedCopyStep {
    std::string name;
    std::string call;
    int result;
    Lines lines;
};

class UpgradeTotalFailure : public UpgradeProgress, public ::testing::WithParamInterface<FailedCopyStep> {
protected:
    void expectFailure() {
        platform.failCall(GetParam().call);
        EXPECT_EQ(SyslogUpdaterOldDbTotalGet(oldPath), GetParam().result);
        EXPECT_EQ(platform.syslogLines, GetParam().lines);
    }
};

TEST_P(UpgradeTotalFailure, GivesItsResultAndMessage) {
    expectFailure();
}

TEST_P(UpgradeTotalFailure, ReleasesAlsoWhatAFailedStatementHandedOut) {
    platform.failuresHandOutObjects = true;
    expectFailure();
}

INSTANTIATE_TEST_SUITE_P(
    Steps, UpgradeTotalFailure,
    ::testing::Values(FailedCopyStep{"Connect", "VESKDBConnect", -1, {"err Fail to connect syslog log database"}},
                      FailedCopyStep{"Statement", "VESKDBExecute", -1, {"err Fail to select syslog log database"}},
                      FailedCopyStep{"Row", "VESKDBFetchRow", -1, {kNotFetched}},
                      FailedCopyStep{"NumberOfRows", "VESKDBNumRows", -2, {}},
                      FailedCopyStep{"Field", "VESKDBFetchField", 0, {}}),
    CaseName());

struct Answer {
    std::string name;
    std::vector<std::map<std::string, std::string>> rows;
    int total;
    Lines lines;
};

class UpgradeTotalAnswer : public UpgradeProgress, public ::testing::WithParamInterface<Answer> {};

TEST_P(UpgradeTotalAnswer, IsReadFromItsOneRow) {
    platform.sqlRows[kCountRows] = GetParam().rows;
    EXPECT_EQ(SyslogUpdaterOldDbTotalGet(oldPath), GetParam().total);
    EXPECT_EQ(platform.syslogLines, GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, UpgradeTotalAnswer,
    ::testing::Values(Answer{"NoRow", {}, -1, {kNotFetched}},
                      Answer{"TwoRows", {{{"COUNT(*)", "1"}}, {{"COUNT(*)", "2"}}}, -2, {}},
                      Answer{"Null", {{}}, 0, {}}, Answer{"OtherColumn", {{{"count", "7"}}}, 0, {}},
                      Answer{"Zero", {{{"COUNT(*)", "0"}}}, 0, {}}, Answer{"Empty", {{{"COUNT(*)", ""}}}, 0, {}},
                      Answer{"Words", {{{"COUNT(*)", "many"}}}, 0, {}},
                      Answer{"Decimal", {{{"COUNT(*)", "010"}}}, 10, {}},
                      Answer{"Greatest", {{{"COUNT(*)", "2147483647"}}}, 2147483647, {}},
                      Answer{"OneMore", {{{"COUNT(*)", "2147483648"}}}, -2147483647 - 1, {}},
                      Answer{"AllBitsButTheHighest", {{{"COUNT(*)", "4294967295"}}}, -1, {}},
                      Answer{"Around", {{{"COUNT(*)", "4294967299"}}}, 3, {}},
                      Answer{"PastEveryNumber", {{{"COUNT(*)", "99999999999999999999"}}}, -1, {}}),
    CaseName());

// ---- rows of the new database

TEST_F(UpgradeProgress, TheProgressIsTheRecordedCountOfTheNewDatabase) {
    fresh().count = 1234;
    EXPECT_EQ(SyslogUpdaterUpdDbProgGet(newPath), 1234);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(UpgradeProgress, TheProgressIsAskedForInThisOrder) {
    (void)SyslogUpdaterUpdDbProgGet(newPath);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre(std::string("DBHandler(\"/volume1/new.DB\", \"") + kSchema + "\")", "DBCon()",
                            "DBInfoCntGet()", "DBDiscon()", "~DBHandler()"));
}

TEST_F(UpgradeProgress, ADatabaseThatCannotBeOpenedHasNoProgress) {
    platform.failCall("DBCon");
    EXPECT_EQ(SyslogUpdaterUpdDbProgGet(newPath), -1);
    EXPECT_THAT(platform.syslogLines, ElementsAre(kNoConnection));
    EXPECT_THAT(platform.calls.linesOf({"DBCon", "DBInfoCntGet", "DBDiscon", "~DBHandler"}),
                ElementsAre("DBCon()", "DBDiscon()", "~DBHandler()"));
}

TEST_F(UpgradeProgress, WhetherTheNewDatabaseIsThereIsLeftToTheConnection) {
    std::string none = "/volume1/none.DB";
    EXPECT_EQ(SyslogUpdaterUpdDbProgGet(none), -1);
    EXPECT_THAT(platform.syslogLines, ElementsAre(kNoConnection));
    EXPECT_EQ(platform.calls.count("VLIBCFileExist"), 0);
}

struct RecordedCount {
    std::string name;
    long long recorded;
    int progress;
    Lines lines;
};

class UpgradeRecordedCount : public UpgradeProgress, public ::testing::WithParamInterface<RecordedCount> {};

TEST_P(UpgradeRecordedCount, IsNarrowedAndANegativeOneLogged) {
    fresh().count = GetParam().recorded;
    EXPECT_EQ(SyslogUpdaterUpdDbProgGet(newPath), GetParam().progress);
    EXPECT_EQ(platform.syslogLines, GetParam().lines);
    EXPECT_EQ(platform.calls.count("DBDiscon"), 1);
}

INSTANTIATE_TEST_SUITE_P(Counts, UpgradeRecordedCount,
                         ::testing::Values(RecordedCount{"None", 0, 0, {}}, RecordedCount{"One", 1, 1, {}},
                                           RecordedCount{"Greatest", 2147483647LL, 2147483647, {}},
                                           RecordedCount{"OneMore", 2147483648LL, -2147483647 - 1, {kNoCount}},
                                           RecordedCount{"AllBitsButTheHighest", 4294967295LL, -1, {kNoCount}},
                                           RecordedCount{"Around", 4294967299LL, 3, {}},
                                           RecordedCount{"Failed", -1, -1, {kNoCount}},
                                           RecordedCount{"OtherFailure", -7, -7, {kNoCount}}),
                         CaseName());

// ---- is it there, is it old

struct Existence {
    std::string name;
    int answer;
    bool isThere;
};

class UpgradeNewDatabase : public UpgradeProgress, public ::testing::WithParamInterface<Existence> {};

TEST_P(UpgradeNewDatabase, IsThereWhenThePlatformDoesNotSayNo) {
    platform.existAnswers[newPath] = GetParam().answer;
    EXPECT_EQ(SyslogUpdaterUpdDbCheck(newPath), GetParam().isThere);
    EXPECT_THAT(platform.calls.lines(), ElementsAre("VLIBCFileExist(\"/volume1/new.DB\")"));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_P(UpgradeNewDatabase, IsLookedAtOnlyWhenItIsThere) {
    fresh().version = 1;
    platform.existAnswers[newPath] = GetParam().answer;
    EXPECT_EQ(SyslogUpdaterOldDbCheck(newPath), GetParam().isThere);
    EXPECT_EQ(platform.calls.count("DBCon"), GetParam().isThere ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Answers, UpgradeNewDatabase,
                         ::testing::Values(Existence{"No", 0, false}, Existence{"Yes", 1, true},
                                           Existence{"YesOfAnotherKind", 42, true},
                                           Existence{"CannotBeTold", -1, true}),
                         CaseName());

TEST_F(UpgradeProgress, ADatabaseThatTheHandleCountsIsNotOld) {
    EXPECT_FALSE(SyslogUpdaterOldDbCheck(newPath));
    fresh().rows.clear();
    EXPECT_FALSE(SyslogUpdaterOldDbCheck(newPath));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(UpgradeProgress, ADatabaseThatTheHandleCannotCountIsOldAndTheProbeSaysWhy) {
    EXPECT_TRUE(SyslogUpdaterOldDbCheck(oldPath));
    EXPECT_THAT(platform.syslogLines, ElementsAre(kNoCount));
}

TEST_F(UpgradeProgress, ADatabaseThatTheHandleCannotOpenIsOldAndTheProbeSaysWhy) {
    old().opens = false;
    EXPECT_TRUE(SyslogUpdaterOldDbCheck(oldPath));
    EXPECT_THAT(platform.syslogLines, ElementsAre(kNoConnection));
}

TEST_F(UpgradeProgress, ADatabaseIsOldWhateverTheNegativeCount) {
    for (const long long count : {-7LL, 2147483648LL}) {
        fresh().count = count;
        EXPECT_TRUE(SyslogUpdaterOldDbCheck(newPath)) << count;
    }
}

TEST_F(UpgradeProgress, AMissingFileIsNoOldDatabaseAndNothingIsSaid) {
    std::string none = "/volume1/none.DB";
    EXPECT_FALSE(SyslogUpdaterOldDbCheck(none));
    EXPECT_EQ(none, "/volume1/none.DB");
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    EXPECT_THAT(platform.calls.lines(), ElementsAre("VLIBCFileExist(\"/volume1/none.DB\")"));
}

// ---- is it complete

struct CompletionCase {
    std::string name;
    long long total;
    long long progress;
    bool complete;
    Lines lines;
};

class UpgradeCompletion : public UpgradeProgress, public ::testing::WithParamInterface<CompletionCase> {};

TEST_P(UpgradeCompletion, ComparesTheTwoCounts) {
    old().count = GetParam().total;
    fresh().count = GetParam().progress;
    EXPECT_EQ(SyslogUpdaterUpdCompete(oldPath, newPath), GetParam().complete);
    EXPECT_EQ(platform.syslogLines, GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Counts, UpgradeCompletion,
    ::testing::Values(CompletionCase{"AllThere", 3, 3, true, {}}, CompletionCase{"BothEmpty", 0, 0, true, {}},
                      CompletionCase{"NoneYet", 3, 0, false, {}}, CompletionCase{"OneMissing", 3, 2, false, {}},
                      CompletionCase{"OneTooMany", 3, 4, false, {}},
                      CompletionCase{"RowsOfNothing", 0, 1, false, {}},
                      CompletionCase{"GreatestTotal", 2147483647LL, 2147483647LL, true, {}},
                      CompletionCase{"TotalTooLarge", 2147483648LL, 2147483648LL, false, {kNoTotal}},
                      CompletionCase{"ProgressTooLarge", 3, 2147483648LL, false, {kNoCount, kNoProgress}},
                      CompletionCase{"BothFail", -1, -1, false, {kNoTotal}},
                      CompletionCase{"NoProgress", 3, -1, false, {kNoCount, kNoProgress}}),
    CaseName());

TEST_F(UpgradeProgress, CompletionAsksForTheTotalFirst) {
    (void)SyslogUpdaterUpdCompete(oldPath, newPath);
    EXPECT_THAT(platform.calls.linesOf({"VESKDBConnect", "VESKDBClose", "DBCon", "DBDiscon"}),
                ElementsAre("VESKDBConnect(null, null, null, \"/volume1/old.DB\")", "VESKDBClose()", "DBCon()",
                            "DBDiscon()"));
}

TEST_F(UpgradeProgress, WithoutATotalTheNewDatabaseIsNotOpened) {
    platform.failCall("VESKDBConnect");
    EXPECT_FALSE(SyslogUpdaterUpdCompete(oldPath, newPath));
    EXPECT_THAT(platform.syslogLines, ElementsAre("err Fail to connect syslog log database", kNoTotal));
    EXPECT_EQ(platform.calls.count("DBCon"), 0);
}

TEST_F(UpgradeProgress, ATotalOfMoreThanOneRowIsNoTotal) {
    platform.sqlRows[kCountRows] = {{{"COUNT(*)", "2"}}, {{"COUNT(*)", "2"}}};
    EXPECT_FALSE(SyslogUpdaterUpdCompete(oldPath, newPath));
    EXPECT_THAT(platform.syslogLines, ElementsAre(kNoTotal));
}

TEST_F(UpgradeProgress, WithoutANewDatabaseNothingIsComplete) {
    std::string none = "/volume1/none.DB";
    EXPECT_FALSE(SyslogUpdaterUpdCompete(oldPath, none));
    EXPECT_EQ(none, "/volume1/none.DB");
    EXPECT_THAT(platform.syslogLines, ElementsAre(kNoConnection, kNoProgress));
}

TEST_F(UpgradeProgress, ARelativeOldPathIsNothingToCompare) {
    std::string relative = "old.DB";
    EXPECT_FALSE(SyslogUpdaterUpdCompete(relative, newPath));
    EXPECT_THAT(platform.syslogLines, ElementsAre(kInvalidPath, kNoTotal));
}

}  // namespace

}  // namespace ombrel::test
