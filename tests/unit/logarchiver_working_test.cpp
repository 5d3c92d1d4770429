// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Finding the working databases.
#include "tests/unit/archiver_test.h"

namespace ombrel::test {

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::Matcher;
using Db = _SYSLOG_WORKING_DB_tag;

Matcher<const Db&> isDb(const std::string& device, const std::string& name, const std::string& path) {
    return AllOf(Field("strDevice", &Db::strDevice, device), Field("strDBName", &Db::strDBName, name),
                 Field("strDBPath", &Db::strDBPath, path));
}

class WorkingDatabases : public ArchiverTest {
protected:
    void TearDown() override {
        EXPECT_THAT(platform.messages, IsEmpty());
        ArchiverTest::TearDown();
    }
};

TEST_F(WorkingDatabases, AreTheLocalOneThenTheSharedOne) {
    platform.addDatabase(kSharedDb);
    platform.addDatabase(kLocalDb);
    platform.addDatabase(hostDb("alpha"));
    EXPECT_THAT(
        archiver.CurrentWorkingDBGet(),
        ElementsAre(isDb("local", "VESKSYSLOGDB__LOCALARCH.DB", "/volume1/logs/VESKSYSLOGDB__LOCALARCH.DB"),
                    isDb("_ARCH", "VESKSYSLOGDB__ARCH.DB", "/volume1/logs/VESKSYSLOGDB__ARCH.DB")));
}

TEST_F(WorkingDatabases, SharedModeLooksAtNoFolder) {
    platform.addDatabase(hostDb("alpha"));
    EXPECT_THAT(archiver.CurrentWorkingDBGet(), IsEmpty());
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBCFileExist(\"" + kLocalDb + "\")", "VLIBCFileExist(\"" + kSharedDb + "\")"));
}

TEST_F(WorkingDatabases, OfHostsLieInTheFoldersOfTheirNames) {
    archiver.ByDevice = 1;
    platform.addDatabase(hostDb("alpha"));
    platform.addFolder("/volume1/logs/beta");
    EXPECT_THAT(archiver.CurrentWorkingDBGet(),
                ElementsAre(isDb("alpha", "VESKSYSLOGDB_alpha.DB", "/volume1/logs/alpha/VESKSYSLOGDB_alpha.DB")));
}

TEST_F(WorkingDatabases, ByDeviceTheSharedOneIsNotLookedAt) {
    archiver.ByDevice = 1;
    platform.addDatabase(kSharedDb);
    platform.addDatabase(kLocalDb);
    EXPECT_THAT(paths(archiver.CurrentWorkingDBGet()), ElementsAre(kLocalDb));
}

TEST_F(WorkingDatabases, ByDeviceTheLocalOneComesFirstThenTheHostsAsEnumerated) {
    archiver.ByDevice = 1;
    for (const char* host : {"alpha", "mid", "zeta"})
        platform.addDatabase(hostDb(host));
    platform.addDatabase(kLocalDb);
    EXPECT_THAT(paths(archiver.CurrentWorkingDBGet()),
                ElementsAre(kLocalDb, hostDb("zeta"), hostDb("mid"), hostDb("alpha")));
}

TEST_F(WorkingDatabases, AnyValueButZeroMeansByDevice) {
    archiver.ByDevice = -1;
    platform.addDatabase(kSharedDb);
    platform.addDatabase(hostDb("alpha"));
    EXPECT_THAT(paths(archiver.CurrentWorkingDBGet()), ElementsAre(hostDb("alpha")));
}

TEST_F(WorkingDatabases, AFolderWithAnotherHostsDatabaseIsSkipped) {
    archiver.ByDevice = 1;
    platform.addDatabase("/volume1/logs/alpha/VESKSYSLOGDB_beta.DB");
    platform.addDatabase("/volume1/logs/@eaDir/x.DB");
    EXPECT_THAT(archiver.CurrentWorkingDBGet(), IsEmpty());
}

TEST_F(WorkingDatabases, FilesInTheArchiveFolderAreNoHosts) {
    archiver.ByDevice = 1;
    platform.addFile("/volume1/logs/2024-03-03_2024-03-09.DB");
    EXPECT_THAT(archiver.CurrentWorkingDBGet(), IsEmpty());
}

TEST_F(WorkingDatabases, AreEnumeratedWithTheAgreedArguments) {
    archiver.ByDevice = 1;
    platform.addDatabase(hostDb("alpha"));
    (void)archiver.CurrentWorkingDBGet();
    EXPECT_THAT(
        platform.calls.linesOf({"VLIBCSzListAlloc", "VLIBCFileEnumDir", "VLIBCFileExist", "VLIBCSzListFree"}),
        ElementsAre("VLIBCFileExist(\"" + kLocalDb + "\")", "VLIBCSzListAlloc(1024)",
                    "VLIBCFileEnumDir(\"/volume1/logs\", 0, 64)", "VLIBCFileExist(\"" + hostDb("alpha") + "\")",
                    "VLIBCSzListFree()"));
}

TEST_F(WorkingDatabases, AnErrorOfTheTestCountsForTheFixedOnes) {
    platform.existAnswers = {{kLocalDb, -1}, {kSharedDb, -5}};
    EXPECT_THAT(paths(archiver.CurrentWorkingDBGet()), ElementsAre(kLocalDb, kSharedDb));
}

TEST_F(WorkingDatabases, AnErrorOfTheTestDoesNotCountForHosts) {
    archiver.ByDevice = 1;
    platform.addDatabase(hostDb("alpha"));
    platform.addDatabase(hostDb("beta"));
    platform.existAnswers = {{kLocalDb, -1}, {hostDb("alpha"), -1}, {hostDb("beta"), 2}};
    EXPECT_THAT(paths(archiver.CurrentWorkingDBGet()), ElementsAre(kLocalDb, hostDb("beta")));
}

TEST_F(WorkingDatabases, AreNoneInAnEmptyFolder) {
    EXPECT_THAT(archiver.CurrentWorkingDBGet(), IsEmpty());
    archiver.ByDevice = 1;
    EXPECT_THAT(archiver.CurrentWorkingDBGet(), IsEmpty());
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(WorkingDatabases, WithoutAnArchiveFolderThePathsBeginWithASlash) {
    archiver.strArchDest = "";
    platform.addDatabase("/VESKSYSLOGDB__LOCALARCH.DB");
    platform.addDatabase("/VESKSYSLOGDB__ARCH.DB");
    EXPECT_THAT(paths(archiver.CurrentWorkingDBGet()),
                ElementsAre("/VESKSYSLOGDB__LOCALARCH.DB", "/VESKSYSLOGDB__ARCH.DB"));
}

TEST_F(WorkingDatabases, AreTheLocalOneAloneWithoutMemory) {
    archiver.ByDevice = 1;
    platform.addDatabase(kLocalDb);
    platform.addDatabase(hostDb("alpha"));
    platform.failCall("VLIBCSzListAlloc");
    EXPECT_THAT(paths(archiver.CurrentWorkingDBGet()), ElementsAre(kLocalDb));
    EXPECT_THAT(platform.syslogLines, ElementsAre("err logarchiver:80 Failed to alloc pFolderList"));
    EXPECT_THAT(platform.calls.linesOf({"syslog", "VLIBCErrSetEx"}),
                ElementsAre("syslog(\"err logarchiver:80 Failed to alloc pFolderList\")",
                            "VLIBCErrSetEx(512, \"logarchiver\", 81)"));
}

TEST_F(WorkingDatabases, AreTheLocalOneAloneWhenTheFolderCannotBeEnumerated) {
    archiver.ByDevice = 1;
    platform.addDatabase(kLocalDb);
    platform.addDatabase(hostDb("alpha"));
    platform.failCall("VLIBCFileEnumDir");
    EXPECT_THAT(paths(archiver.CurrentWorkingDBGet()), ElementsAre(kLocalDb));
    EXPECT_THAT(platform.syslogLines,
                ElementsAre("err logarchiver:86 Failed to enum hostname folder under /volume1/logs"));
    EXPECT_EQ(platform.calls.count("VLIBCErrSetEx"), 0);
}

TEST_F(WorkingDatabases, AnArchiveFolderThatIsGoneIsReported) {
    archiver.ByDevice = 1;
    archiver.strArchDest = "/volume9/%s";
    EXPECT_THAT(archiver.CurrentWorkingDBGet(), IsEmpty());
    EXPECT_THAT(platform.syslogLines,
                ElementsAre("err logarchiver:86 Failed to enum hostname folder under /volume9/%s"));
}

struct SameCase {
    std::string name;
    std::string a;
    std::string b;
    bool same;
};

class SameDatabase : public PlatformTestWith<SameCase> {};

TEST_P(SameDatabase, ComparesThePathsByteForByte) {
    EXPECT_EQ(SameDevice({"h", "n", GetParam().a}, {"h", "n", GetParam().b}), GetParam().same);
    EXPECT_EQ(SameDevice({"one", "x", GetParam().a}, {"two", "y", GetParam().b}), GetParam().same);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Paths, SameDatabase,
    ::testing::Values(SameCase{"Equal", "/v/a.DB", "/v/a.DB", true}, SameCase{"BothEmpty", "", "", true},
                      SameCase{"LetterCase", "/v/a.DB", "/v/a.db", false},
                      SameCase{"TrailingSlash", "/v/a", "/v/a/", false},
                      SameCase{"DoubledSlash", "/v/a", "/v//a", false},
                      SameCase{"Prefix", "/v/a", "/v/a.DB", false},
                      SameCase{"BehindANul", std::string("/v\0a", 4), std::string("/v\0b", 4), false}),
    CaseName());

}  // namespace

}  // namespace ombrel::test
