// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Measuring one log database.
#include "tests/unit/archiver_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kProbedDb = "/volume1/logs/x.DB";

class Probes : public ArchiverTest {
protected:
    static std::string handleCall() {
        return std::string("DBHandler(\"") + kProbedDb + "\", \"" + kSchema + "\")";
    }
    static std::string existCall() { return std::string("VLIBCFileExist(\"") + kProbedDb + "\")"; }
};

struct SizeCase {
    std::string name;
    long long bytes;
    int mebibytes;
};

class DatabaseSize : public Probes, public ::testing::WithParamInterface<SizeCase> {};

TEST_P(DatabaseSize, IsCountedInWholeMebibytes) {
    platform.addFile(kProbedDb);
    platform.reportedSizes[kProbedDb] = GetParam().bytes;
    EXPECT_EQ(archiver.DBSizeGet(kProbedDb), GetParam().mebibytes);
    EXPECT_THAT(platform.messages, IsEmpty());
}

constexpr long long kProbedMebibyte = 1048576;

INSTANTIATE_TEST_SUITE_P(
    Sizes, DatabaseSize,
    ::testing::Values(SizeCase{"Empty", 0, 0}, SizeCase{"JustBelowOne", 1048575, 0}, SizeCase{"One", 1048576, 1},
                      SizeCase{"JustBelowFive", 5242879, 4}, SizeCase{"Five", 5242880, 5},
                      SizeCase{"Beyond32BitsOfBytes", 5000 * kProbedMebibyte, 5000},
                      SizeCase{"LargestInt", 2147483647 * kProbedMebibyte, 2147483647},
                      SizeCase{"NarrowedTo32Bits", 4294967297 * kProbedMebibyte, 1},
                      SizeCase{"NarrowedToNegative", 2147483648 * kProbedMebibyte, -2147483647 - 1},
                      SizeCase{"NegativeTruncatesTowardZero", -1048575, 0}),
    CaseName());

TEST_F(Probes, TheSizeIsThatOfARealFile) {
    platform.addSparseFile(kProbedDb, 6291456);
    EXPECT_EQ(archiver.DBSizeGet(kProbedDb), 6);
    EXPECT_THAT(platform.calls.lines(), ElementsAre("stat64(\"/volume1/logs/x.DB\")"));
}

TEST_F(Probes, TheSizeOfAMissingFileIsAReportedFailure) {
    EXPECT_EQ(archiver.DBSizeGet(kProbedDb), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to state file status"));
}

TEST_F(Probes, TheSizeIsAReportedFailureWhenTheFileCannotBeAsked) {
    platform.addFile(kProbedDb);
    platform.failCall("stat64", 1, EACCES);
    EXPECT_EQ(archiver.DBSizeGet(kProbedDb), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to state file status"));
}

TEST_F(Probes, TimesAndCountComeFromTheInformationRecord) {
    FakeDatabase& db = platform.addDatabase(kProbedDb);
    db.start = 1709424000;
    db.end = 9876543210;
    db.count = 5000000000;
    EXPECT_EQ(archiver.DBStartTimeGet(kProbedDb), 1709424000);
    EXPECT_EQ(archiver.DBEndTimeGet(kProbedDb), 9876543210);
    EXPECT_EQ(archiver.DBCountGet(kProbedDb), 5000000000);
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(Probes, AnEmptyDatabaseIsAsItReportsItself) {
    platform.addDatabase(kProbedDb);
    EXPECT_EQ(archiver.DBStartTimeGet(kProbedDb), 0);
    EXPECT_EQ(archiver.DBEndTimeGet(kProbedDb), 0);
    EXPECT_EQ(archiver.DBCountGet(kProbedDb), 0);
}

TEST_F(Probes, TheTimesOfAMissingFileAreNow) {
    platform.now = 1712345678;
    EXPECT_EQ(archiver.DBStartTimeGet(kProbedDb), 1712345678);
    EXPECT_EQ(archiver.DBEndTimeGet(kProbedDb), 1712345678);
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(Probes, TheCountOfAMissingFileIsMinusOneWithoutAMessage) {
    EXPECT_EQ(archiver.DBCountGet(kProbedDb), -1);
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(Probes, AFileThatIsNoDatabaseIsAReportedFailure) {
    platform.addFile(kProbedDb, "not a database");
    EXPECT_EQ(archiver.DBStartTimeGet(kProbedDb), 0);
    EXPECT_EQ(archiver.DBEndTimeGet(kProbedDb), 0);
    EXPECT_EQ(archiver.DBCountGet(kProbedDb), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to connect to database", "0 Fail to connect to database",
                                               "0 Fail to connect to database"));
}

TEST_F(Probes, AnyNonzeroAnswerMeansThatTheFileExists) {
    platform.addDatabase(kProbedDb).start = 42;
    platform.existAnswers[kProbedDb] = -1;
    EXPECT_EQ(archiver.DBStartTimeGet(kProbedDb), 42);
    EXPECT_EQ(archiver.DBCountGet(kProbedDb), 0);
}

TEST_F(Probes, TimesConnectAndDisconnectOnce) {
    platform.addDatabase(kProbedDb);
    (void)archiver.DBStartTimeGet(kProbedDb);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(handleCall(), existCall(), "DBCon()", "DBInfoStartGet()",
                                                    "DBDiscon()", "~DBHandler()"));
    platform.calls.clear();
    (void)archiver.DBEndTimeGet(kProbedDb);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre(handleCall(), existCall(), "DBCon()", "DBInfoEndGet()", "DBDiscon()", "~DBHandler()"));
}

TEST_F(Probes, TheCountConnectsAndDisconnectsOnce) {
    platform.addDatabase(kProbedDb);
    (void)archiver.DBCountGet(kProbedDb);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre(handleCall(), existCall(), "DBCon()", "DBInfoCntGet()", "DBDiscon()", "~DBHandler()"));
}

TEST_F(Probes, AFailedConnectionIsDisconnectedToo) {
    platform.addDatabase(kProbedDb).opens = false;
    for (auto probe : {&LogArchiver::DBStartTimeGet, &LogArchiver::DBEndTimeGet, &LogArchiver::DBCountGet}) {
        platform.calls.clear();
        (void)(archiver.*probe)(kProbedDb);
        EXPECT_THAT(platform.calls.lines(),
                    ElementsAre(handleCall(), existCall(), "DBCon()", "MSG(0, \"Fail to connect to database\")",
                                "DBDiscon()", "~DBHandler()"));
    }
}

TEST_F(Probes, OfAMissingFileTheTimesDisconnectNothingButTheCountDoes) {
    (void)archiver.DBStartTimeGet(kProbedDb);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(handleCall(), existCall(), "time()", "~DBHandler()"));
    platform.calls.clear();
    (void)archiver.DBEndTimeGet(kProbedDb);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(handleCall(), existCall(), "time()", "~DBHandler()"));
    platform.calls.clear();
    (void)archiver.DBCountGet(kProbedDb);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(handleCall(), existCall(), "DBDiscon()", "~DBHandler()"));
}

}  // namespace

}  // namespace ombrel::test
