// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The archive name of a database of the old layout.
#include "ombrel/utils_updater.h"
#include "tests/fake/platform_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kFirstDay = "SELECT ldate FROM logs ORDER BY ldate ASC LIMIT 1";
constexpr const char* kLastDay = "SELECT ldate FROM logs ORDER BY ldate DESC LIMIT 1";

class OldArchiveName : public PlatformTest {
protected:
    void SetUp() override {
        FakeDatabase& db = platform.addDatabase(path);
        db.version = 1;
        db.days = {"2019-05-02", "2019-04-30"};
    }
    void TearDown() override {
        EXPECT_THAT(platform.messages, IsEmpty());
        PlatformTest::TearDown();
    }

    std::string path = "/volume1/old.DB";
};

TEST_F(OldArchiveName, IsMadeOfTheFirstAndTheLastDay) {
    EXPECT_EQ(SyslogUpdaterArchNameGet(path), "2019-04-30_2019-05-02.DB");
    EXPECT_EQ(path, "/volume1/old.DB");
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(OldArchiveName, AsksTheDatabaseInThisOrder) {
    (void)SyslogUpdaterArchNameGet(path);
    const Lines asked =
        platform.calls.linesOf({"VESKDBConnect", "VESKDBExecute", "VESKDBFetchRow", "VESKDBFetchField"});
    EXPECT_THAT(asked,
                ElementsAre("VESKDBConnect(null, null, null, \"/volume1/old.DB\")",
                            std::string("VESKDBExecute(\"") + kFirstDay + "\")", "VESKDBFetchRow()",
                            "VESKDBFetchField(0, \"ldate\")", std::string("VESKDBExecute(\"") + kLastDay + "\")",
                            "VESKDBFetchRow()", "VESKDBFetchField(0, \"ldate\")"));
}

TEST_F(OldArchiveName, OfOneRowNamesItsDayTwice) {
    platform.database(path)->days = {"2020-01-01"};
    EXPECT_EQ(SyslogUpdaterArchNameGet(path), "2020-01-01_2020-01-01.DB");
}

TEST_F(OldArchiveName, ReadsTheRowThatWasFetchedWhateverItsIndex) {
    platform.firstRow = 3;
    EXPECT_EQ(SyslogUpdaterArchNameGet(path), "2019-04-30_2019-05-02.DB");
}

TEST_F(OldArchiveName, IsEmptyWithoutADatabase) {
    std::string none = "/volume1/none %s.DB";
    EXPECT_EQ(SyslogUpdaterArchNameGet(none), "");
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils_updater:235 Fail to open db: /volume1/none %s.DB"));
}

TEST_F(OldArchiveName, IsEmptyWithoutRows) {
    platform.database(path)->days.clear();
    EXPECT_EQ(SyslogUpdaterArchNameGet(path), "");
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils_updater:246 Fail to fetch row"));
    EXPECT_EQ(platform.calls.count("VESKDBExecute"), 1);
}

TEST_F(OldArchiveName, SurvivesADayThatIsNull) {
    platform.failCall("VESKDBFetchField", 1);
    EXPECT_EQ(SyslogUpdaterArchNameGet(path), "_2019-05-02.DB");
}

struct FailedStep {
    std::string name;
    std::string call;
    int nth;
    std::string line;
};

class OldArchiveNameFailure : public OldArchiveName, public ::testing::WithParamInterface<FailedStep> {
protected:
    void expectFailure() {
        platform.failCall(GetParam().call, GetParam().nth);
        EXPECT_EQ(SyslogUpdaterArchNameGet(path), "");
        EXPECT_THAT(platform.syslogLines, ElementsAre(GetParam().line));
    }
};

TEST_P(OldArchiveNameFailure, IsLoggedAndNamesNothing) {
    expectFailure();
}

TEST_P(OldArchiveNameFailure, ReleasesAlsoWhatAFailedStatementHandedOut) {
    platform.failuresHandOutObjects = true;
    expectFailure();
}

INSTANTIATE_TEST_SUITE_P(
    Steps, OldArchiveNameFailure,
    ::testing::Values(FailedStep{"Connect", "VESKDBConnect", 1,
                                 "err utils_updater:235 Fail to open db: /volume1/old.DB"},
                      FailedStep{"FirstStatement", "VESKDBExecute", 1,
                                 std::string("err utils_updater:242 Fail to execute SQL command: ") + kFirstDay},
                      FailedStep{"FirstRow", "VESKDBFetchRow", 1, "err utils_updater:246 Fail to fetch row"},
                      FailedStep{"LastStatement", "VESKDBExecute", 2,
                                 std::string("err utils_updater:254 Fail to execute SQL command: ") + kLastDay},
                      FailedStep{"LastRow", "VESKDBFetchRow", 2, "err utils_updater:258 Fail to fetch row"}),
    CaseName());

}  // namespace

}  // namespace ombrel::test
