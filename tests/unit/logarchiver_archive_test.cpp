// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Archiving one database.
#include "tests/unit/archiver_test.h"

namespace ombrel::test {

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string kArchive = "/volume1/logs/2024-03-03_2024-03-09.DB";
const std::string kTool = "/var/packages/Ombrel/target/tool/vesksyslogpostproc";

class OneArchive : public ArchiverTest {
protected:
    OneArchive() : db(record("_ARCH", kSharedDb)) { platform.addDatabase(kSharedDb, march()); }

    void addCompanions() {
        for (const char* tag : {"SYS", "CON", "XFER"}) {
            platform.addFile(std::string("/volume1/logs/VESKSYSLOGDB__ARCH_") + tag, tag);
        }
    }
    void expectStillInPlace() { EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kSharedDb)); }
    void expectMoved() {
        EXPECT_FALSE(platform.exists(kSharedDb));
        EXPECT_TRUE(platform.exists(kArchive));
    }
    void expectNotStarted() { EXPECT_EQ(platform.calls.count("VLIBCProcForkChildNoWait"), 0); }

    _SYSLOG_WORKING_DB_tag db;
};

TEST_F(OneArchive, MovesTheDatabaseRestartsTheWriterAndStartsTheTool) {
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    expectMoved();
    EXPECT_EQ(platform.jobs["pkg-Ombrel-syslog"], 1);
    EXPECT_THAT(platform.events, ElementsAre("finished " + kArchive));
    EXPECT_THAT(platform.messages, IsEmpty());
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(OneArchive, TakesItsStepsInThisOrder) {
    addCompanions();
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    const std::string from = "/volume1/logs/VESKSYSLOGDB__ARCH";
    const std::string to = "/volume1/logs/2024-03-03_2024-03-09";
    const auto copy = [&](const std::string& end) {
        return "VESKFileCopy(\"" + from + end + "\", \"" + to + end + "\", \"4 8 12 76\")";
    };
    EXPECT_THAT(
        platform.calls.linesOf({"Logger", "VESKFSMkdirP", "VESKFileCopy", "VLIBServicectlRestart",
                                "VLIBCSzListAlloc", "VLIBCSzListPush", "VLIBCProcForkChildNoWait",
                                "LogAddArchFinish", "~Logger"}),
        ElementsAre("Logger()", "VESKFSMkdirP(\"/volume1/logs/\", 0, 0, -1, -1, 0755)", copy(".DB"), copy("_SYS"),
                    copy("_CON"), copy("_XFER"), "VLIBServicectlRestart(\"pkg-Ombrel-syslog\", 0)",
                    "VLIBCSzListAlloc(1024)", "VLIBCSzListPush(\"" + kTool + "\")",
                    "VLIBCSzListPush(\"--dbpath=" + kArchive + "\")", "VLIBCSzListPush(\"\")",
                    "VLIBCProcForkChildNoWait()", "LogAddArchFinish(\"" + kArchive + "\")", "~Logger()"));
}

TEST_F(OneArchive, ReleasesTheArgumentsBeforeTheEventIsEntered) {
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    EXPECT_THAT(platform.calls.linesOf({"VLIBCSzListFree", "LogAddArchFinish"}),
                ElementsAre("VLIBCSzListFree()", "LogAddArchFinish(\"" + kArchive + "\")"));
}

TEST_F(OneArchive, TakesItsCompanionsAlong) {
    addCompanions();
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kArchive, "/volume1/logs/2024-03-03_2024-03-09_CON",
                                                             "/volume1/logs/2024-03-03_2024-03-09_SYS",
                                                             "/volume1/logs/2024-03-03_2024-03-09_XFER"));
    EXPECT_EQ(platform.read("/volume1/logs/2024-03-03_2024-03-09_CON"), "CON");
}

TEST_F(OneArchive, ACompanionThatCannotBeMovedStopsNothing) {
    addCompanions();
    for (int nth : {2, 3, 4})
        platform.failCall("VESKFileCopy", nth);
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    expectMoved();
    EXPECT_EQ(platform.read("/volume1/logs/VESKSYSLOGDB__ARCH_SYS"), "SYS");
    EXPECT_THAT(platform.messages, IsEmpty());
    EXPECT_THAT(platform.events, ElementsAre("finished " + kArchive));
}

TEST_F(OneArchive, GoesIntoTheFolderOfItsDevice) {
    archiver.ByDevice = 1;
    auto host = record("host7", hostDb("host7"));
    platform.addDatabase(hostDb("host7"), march());
    EXPECT_EQ(archiver.DoArchive(host, false), 0);
    EXPECT_TRUE(platform.exists("/volume1/logs/host7/2024-03-03_2024-03-09.DB"));
}

TEST_F(OneArchive, TheFlagMakesNoDifference) {
    EXPECT_EQ(archiver.DoArchive(db, true), 0);
    const Lines withFlag = platform.calls.lines();
    platform.removeFile(kArchive);
    platform.addDatabase(kSharedDb, march());
    platform.calls.clear();
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    EXPECT_EQ(platform.calls.lines(), withFlag);
}

TEST_F(OneArchive, ADatabaseThatHasVanishedIsReportedAsFinished) {
    platform.removeFile(kSharedDb);
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    EXPECT_THAT(platform.events, ElementsAre("finished /volume1/logs/1970-01-01_1970-01-01.DB"));
    EXPECT_EQ(platform.calls.count("VESKFileCopy"), 0);
    EXPECT_EQ(platform.calls.count("VLIBServicectlRestart"), 1);
}

TEST_F(OneArchive, ReadsTheClockAndTheSettingsNoMore) {
    platform.addFile(kServerConf, sampleText());
    archiver.LastArchTime = 1234;
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    EXPECT_EQ(archiver.LastArchTime, 1234);
    EXPECT_EQ(platform.read(kServerConf), sampleText());
    EXPECT_EQ(platform.calls.count("VLIBCFileGetKeyValue"), 0);
    EXPECT_EQ(platform.calls.count("VLIBCFileSetKeys"), 0);
}

TEST_F(OneArchive, TouchesNothingWithoutADestination) {
    platform.failCall("VESKFSMkdirP");
    EXPECT_EQ(archiver.DoArchive(db, false), -1);
    EXPECT_EQ(platform.messages.back(), "0 Fail to get archive destination path");
    EXPECT_EQ(platform.messages.size(), 2U);
    EXPECT_THAT(platform.events, ElementsAre("failed "));
    EXPECT_EQ(platform.calls.count("VLIBServicectlRestart"), 0);
    expectStillInPlace();
    expectNotStarted();
}

TEST_F(OneArchive, StopsWhenTheDatabaseCannotBeMoved) {
    addCompanions();
    platform.failCall("VESKFileCopy");
    EXPECT_EQ(archiver.DoArchive(db, false), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to move database: " + kSharedDb + " to " + kArchive));
    EXPECT_THAT(platform.events, ElementsAre("failed " + kArchive));
    EXPECT_TRUE(platform.exists(kSharedDb));
    EXPECT_TRUE(platform.exists("/volume1/logs/VESKSYSLOGDB__ARCH_SYS"));
    EXPECT_EQ(platform.calls.count("VESKFileCopy"), 1);
    EXPECT_EQ(platform.calls.count("VLIBServicectlRestart"), 0);
    expectNotStarted();
}

TEST_F(OneArchive, StopsWhenTheVolumeIsFull) {
    platform.space["/volume1/logs"] = {1, 1};
    EXPECT_EQ(archiver.DoArchive(db, false), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to move database: " + kSharedDb + " to " + kArchive));
    EXPECT_THAT(platform.events, ElementsAre("failed " + kArchive));
    expectStillInPlace();
}

TEST_F(OneArchive, StaysMovedWhenTheWriterCannotBeRestarted) {
    addCompanions();
    platform.failCall("VLIBServicectlRestart");
    EXPECT_EQ(archiver.DoArchive(db, false), -1);
    expectMoved();
    EXPECT_TRUE(platform.exists("/volume1/logs/2024-03-03_2024-03-09_XFER"));
    EXPECT_THAT(platform.syslogLines, ElementsAre("err Fail to send HUP signal to syslog-ng"));
    EXPECT_THAT(platform.messages, IsEmpty());
    EXPECT_THAT(platform.events, ElementsAre("failed " + kArchive));
    EXPECT_EQ(platform.calls.count("VLIBCSzListAlloc"), 0);
    expectNotStarted();
}

TEST_F(OneArchive, StaysMovedWhenThereIsNoMemoryForTheArguments) {
    platform.failCall("VLIBCSzListAlloc");
    EXPECT_EQ(archiver.DoArchive(db, false), -1);
    expectMoved();
    EXPECT_EQ(platform.jobs["pkg-Ombrel-syslog"], 1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Out of memory"));
    EXPECT_THAT(platform.events, ElementsAre("failed " + kArchive));
    expectNotStarted();
}

TEST_F(OneArchive, DoesNotTellAFailedForkApart) {
    platform.failCall("VLIBCProcForkChildNoWait");
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    EXPECT_THAT(platform.events, ElementsAre("finished " + kArchive));
    EXPECT_EQ(platform.calls.count("VLIBCExecv"), 0);
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(OneArchive, LeavesAFreshDatabaseOfTheWriterAlone) {
    platform.copyManner = CopyManner::kMoveThenFresh;
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    EXPECT_EQ(platform.read(kSharedDb), "a fresh file");
    EXPECT_TRUE(platform.database(kArchive) != nullptr);
}

TEST_F(OneArchive, LeavesNoRowsAtTheWorkingPathOfACopyingPlatform) {
    platform.copyManner = CopyManner::kCopy;
    EXPECT_EQ(archiver.DoArchive(db, false), 0);
    expectMoved();
}

/// The child prints its calls; the parent of the death test reads them.
class ArchiveChild : public OneArchive {
protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "fast");
        platform.forkResult = 0;
    }
    void runChild() {
        platform.calls.mirrorToStderr();
        (void)archiver.DoArchive(db, false);
        std::_Exit(99);  // the child must not come back from the call
    }
};

TEST_F(ArchiveChild, BecomesTheToolWithTheArchivePathAlone) {
    EXPECT_EXIT(
        runChild(), ExitedWithCode(FakePlatform::kExecutedExitCode),
        AllOf(HasSubstr("VLIBCExecv(\"" + kTool + "\", [\"" + kTool + "\", \"--dbpath=" + kArchive + "\"], 0)"),
              Not(HasSubstr("LogAddArch")), Not(HasSubstr("MSG("))));
}

TEST_F(ArchiveChild, EndsWithoutAnErrorCodeWhenTheToolCannotBeStarted) {
    platform.failCall("VLIBCExecv", 1, ENOENT);
    EXPECT_EXIT(
        runChild(), ExitedWithCode(0),
        AllOf(HasSubstr("MSG(0, \"Fail to do syslog database post process\")"), Not(HasSubstr("LogAddArch"))));
}

TEST_F(ArchiveChild, EndsInSilenceWhenTheStartReturnsWithoutAFailure) {
    platform.execReturns = 0;
    EXPECT_EXIT(runChild(), ExitedWithCode(0),
                AllOf(HasSubstr("VLIBCExecv("), Not(HasSubstr("MSG(")), Not(HasSubstr("LogAddArch"))));
}

}  // namespace

}  // namespace ombrel::test
