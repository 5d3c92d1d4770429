// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Naming and placing an archive.
#include <cstring>

#include "src/logarchiver_internal.h"
#include "tests/unit/archiver_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kName = "2024-03-03_2024-03-09";

class ArchiveName : public ArchiverTest {
protected:
    std::string destination(const std::string& device = "_ARCH") {
        auto db = record(device, kSharedDb);
        return archiver.ArchDestGet(db);
    }
    void occupy(const std::string& name) { platform.addFile(std::string(kDest) + "/" + name, "taken"); }
    void occupyNumbers(const std::string& stem, int from, int to) {
        for (int n = from; n <= to; ++n)
            occupy(stem + "_" + std::to_string(n) + ".DB");
    }
};

TEST_F(ArchiveName, IsMadeOfTheFirstAndTheLastDay) {
    platform.addDatabase(kSharedDb, march());
    EXPECT_EQ(destination(), "/volume1/logs/2024-03-03_2024-03-09.DB");
    EXPECT_THAT(platform.messages, IsEmpty());
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(ArchiveName, CallsThePlatformInThisOrder) {
    platform.addDatabase(kSharedDb, march());
    (void)destination();
    EXPECT_THAT(
        platform.calls.lines(),
        ElementsAre("VESKFSMkdirP(\"/volume1/logs/\", 0, 0, -1, -1, 0755)",
                    "DBHandler(\"" + kSharedDb + "\", \"" + kSchema + "\")", "DBCon()",
                    "SyslogDBVersionGet(\"" + kSharedDb + "\")", "DBInfoStartStrGet()", "DBInfoEndStrGet()",
                    "DBDiscon()", "~DBHandler()", "VLIBCFileExist(\"/volume1/logs//" + kName + ".DB\")"));
}

TEST_F(ArchiveName, MakesTheArchiveFolderWithItsParents) {
    archiver.strArchDest = "/volume1/archive/deep";
    platform.addDatabase(kSharedDb, march());
    EXPECT_EQ(destination(), "/volume1/archive/deep/" + kName + ".DB");
    EXPECT_TRUE(platform.exists("/volume1/archive/deep"));
}

TEST_F(ArchiveName, ReservesNothing) {
    platform.addDatabase(kSharedDb, march());
    EXPECT_FALSE(platform.exists(destination()));
}

TEST_F(ArchiveName, ChangesNothingInTheRecord) {
    platform.addDatabase(kSharedDb, march());
    auto db = record("_ARCH", kSharedDb);
    (void)archiver.ArchDestGet(db);
    EXPECT_EQ(db.strDevice, "_ARCH");
    EXPECT_EQ(db.strDBName, "VESKSYSLOGDB__ARCH.DB");
    EXPECT_EQ(db.strDBPath, kSharedDb);
}

struct DeviceCase {
    std::string name;
    int byDevice;
    std::string device;
    std::string folder;
};

class FolderOfArchive : public ArchiveName, public ::testing::WithParamInterface<DeviceCase> {};

TEST_P(FolderOfArchive, FollowsTheByDeviceSwitch) {
    archiver.ByDevice = GetParam().byDevice;
    platform.addDatabase(kSharedDb, march());
    EXPECT_EQ(destination(GetParam().device), GetParam().folder + kName + ".DB");
    EXPECT_TRUE(platform.exists(GetParam().folder));
    EXPECT_THAT(platform.calls.linesOf({"VESKFSMkdirP"}),
                ElementsAre("VESKFSMkdirP(\"" + GetParam().folder + "\", 0, 0, -1, -1, 0755)"));
}

INSTANTIATE_TEST_SUITE_P(Folders, FolderOfArchive,
                         ::testing::Values(DeviceCase{"Common", 0, "host7", "/volume1/logs/"},
                                           DeviceCase{"Host", 1, "host7", "/volume1/logs/host7/"},
                                           DeviceCase{"AnyValueButZero", -2, "host7", "/volume1/logs/host7/"},
                                           DeviceCase{"Local", 1, "local", "/volume1/logs/local/"},
                                           DeviceCase{"Shared", 1, "_ARCH", "/volume1/logs/_ARCH/"},
                                           DeviceCase{"Unescaped", 1, "a b%c", "/volume1/logs/a b%c/"}),
                         CaseName());

TEST_F(ArchiveName, IsEmptyWhenTheFolderCannotBeMade) {
    platform.addDatabase(kSharedDb, march());
    platform.failCall("VESKFSMkdirP", 1, ENOSPC);
    EXPECT_EQ(destination(), "");
    EXPECT_THAT(
        platform.messages,
        ElementsAre(std::string("0 VESKFSMkdirP fails to create archive destination folder: /volume1/logs/ (") +
                    strerror(ENOSPC) + ")"));
    EXPECT_EQ(platform.calls.count("DBHandler"), 0);
}

TEST_F(ArchiveName, IsThePlaceholderWhenTheDatabaseCannotBeOpened) {
    platform.addFile(kSharedDb, "not a database");
    EXPECT_EQ(destination(), "/volume1/logs/1970-01-01_1970-01-01.DB");
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to connect to database"));
    EXPECT_THAT(platform.calls.linesOf({"DBCon", "MSG", "SyslogDBVersionGet", "DBDiscon", "~DBHandler"}),
                ElementsAre("DBCon()", "MSG(0, \"Fail to connect to database\")", "DBDiscon()", "~DBHandler()"));
}

TEST_F(ArchiveName, ThePlaceholderIsNumberedLikeAnyOther) {
    platform.addFile(kSharedDb, "not a database");
    occupy("1970-01-01_1970-01-01.DB");
    EXPECT_EQ(destination(), "/volume1/logs/1970-01-01_1970-01-01_1.DB");
}

TEST_F(ArchiveName, TakesTheLowestFreeNumber) {
    platform.addDatabase(kSharedDb, march());
    occupy(kName + ".DB");
    occupy(kName + "_1.DB");
    occupy(kName + "_3.DB");
    EXPECT_EQ(destination(), "/volume1/logs/" + kName + "_2.DB");
    EXPECT_THAT(platform.calls.linesOf({"VLIBCFileExist"}),
                ElementsAre("VLIBCFileExist(\"/volume1/logs//" + kName + ".DB\")",
                            "VLIBCFileExist(\"/volume1/logs//" + kName + "_1.DB\")",
                            "VLIBCFileExist(\"/volume1/logs//" + kName + "_2.DB\")"));
}

TEST_F(ArchiveName, PrefersTheBaseNameToAGapBehindIt) {
    platform.addDatabase(kSharedDb, march());
    occupy(kName + "_1.DB");
    EXPECT_EQ(destination(), "/volume1/logs/" + kName + ".DB");
}

TEST_F(ArchiveName, AnyNonzeroAnswerMeansTaken) {
    platform.addDatabase(kSharedDb, march());
    platform.existAnswers["/volume1/logs//" + kName + ".DB"] = -1;
    EXPECT_EQ(destination(), "/volume1/logs/" + kName + "_1.DB");
}

TEST_F(ArchiveName, GoesUpToNumberOneThousand) {
    platform.addDatabase(kSharedDb, march());
    occupy(kName + ".DB");
    occupyNumbers(kName, 1, 999);
    EXPECT_EQ(destination(), "/volume1/logs/" + kName + "_1000.DB");
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(ArchiveName, IsEmptyWhenAllNumbersAreTaken) {
    platform.addDatabase(kSharedDb, march());
    occupy(kName + ".DB");
    occupyNumbers(kName, 1, 1000);
    EXPECT_EQ(destination(), "");
    EXPECT_THAT(platform.messages, ElementsAre("0 Cannot find propriate archive destination",
                                               "0 Fail to compose archive destination file name"));
    EXPECT_EQ(platform.calls.count("VLIBCFileExist"), 1001);
    EXPECT_EQ(platform.calls.linesOf({"VLIBCFileExist"}).back(),
              "VLIBCFileExist(\"/volume1/logs//" + kName + "_1000.DB\")");
}

TEST_F(ArchiveName, OfAVersion1DatabaseComesFromItsRows) {
    FakeDatabase& db = platform.addDatabase(kSharedDb, march());
    db.version = 1;
    db.days = {"2019-05-02", "2019-04-30", "2019-05-01"};
    EXPECT_EQ(destination(), "/volume1/logs/2019-04-30_2019-05-02.DB");
    EXPECT_EQ(platform.calls.count("DBInfoStartStrGet"), 0);
    EXPECT_EQ(platform.calls.count("DBDiscon"), 1);
}

TEST_F(ArchiveName, OfAnEmptyVersion1DatabaseIsANumberAlone) {
    platform.addDatabase(kSharedDb).version = 1;
    EXPECT_EQ(destination(), "/volume1/logs/_1.DB");
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils_updater:246 Fail to fetch row"));
    EXPECT_THAT(platform.messages, IsEmpty());
    EXPECT_THAT(platform.calls.linesOf({"VLIBCFileExist"}),
                ElementsAre("VLIBCFileExist(\"/volume1/logs//\")", "VLIBCFileExist(\"/volume1/logs//_1.DB\")"));
}

TEST_F(ArchiveName, OfAnEmptyVersion1DatabaseTakesTheNextFreeNumber) {
    platform.addDatabase(kSharedDb).version = 1;
    occupy("_1.DB");
    EXPECT_EQ(destination(), "/volume1/logs/_2.DB");
}

TEST_F(ArchiveName, ThatIsEmptyAndFreeIsNoName) {
    platform.addDatabase(kSharedDb).version = 1;
    platform.existAnswers["/volume1/logs//"] = 0;
    EXPECT_EQ(destination(), "");
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to compose archive destination file name"));
}

TEST_F(ArchiveName, OfAnUnknownVersionComesFromTheInformationRecord) {
    platform.addDatabase(kSharedDb, march()).version = 3;
    EXPECT_EQ(destination(), "/volume1/logs/" + kName + ".DB");
}

struct CompanionCase {
    std::string name;
    std::string path;
    std::string tag;
    std::string expected;
};

class CompanionName : public PlatformTestWith<CompanionCase> {};

TEST_P(CompanionName, ReplacesTheLastThreeCharacters) {
    EXPECT_EQ(DBSuffixNameGet(GetParam().path, GetParam().tag), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Names, CompanionName,
    ::testing::Values(CompanionCase{"Host", "VESKSYSLOGDB_host7.DB", "CON", "VESKSYSLOGDB_host7_CON"},
                      CompanionCase{"Archive", "/a/2024-03-03_2024-03-09.DB", "SYS",
                                    "/a/2024-03-03_2024-03-09_SYS"},
                      CompanionCase{"OtherExtension", "x.db3", "XFER", "x._XFER"},
                      CompanionCase{"ExactlyThree", ".DB", "SYS", "_SYS"},
                      CompanionCase{"TwoAreKept", "ab", "SYS", "ab_SYS"},
                      CompanionCase{"OneIsKept", "a", "SYS", "a_SYS"}, CompanionCase{"Empty", "", "SYS", "_SYS"},
                      CompanionCase{"EmptyTag", "x.DB", "", "x_"}),
    CaseName());

}  // namespace

}  // namespace ombrel::test
