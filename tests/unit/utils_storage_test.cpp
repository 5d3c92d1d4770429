// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Free space, usable shares, moving a database file.
#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "tests/fake/platform_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct SpaceCase {
    std::string name;
    VolumeSpace space;
    unsigned long long bytes;
    bool enough;
};

class VolumeHasSpace : public PlatformTestWith<SpaceCase> {};

TEST_P(VolumeHasSpace, ComparesTheBytesWithTheBlocksForOrdinaryUsers) {
    platform.space["/volume1"] = GetParam().space;
    EXPECT_EQ(IsVolumeSpaceEnough("/volume1", GetParam().bytes), GetParam().enough);
    EXPECT_THAT(platform.calls.lines(), ElementsAre("statfs64(\"/volume1\")"));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, VolumeHasSpace,
    ::testing::Values(SpaceCase{"ExactlyEnough", {4096, 10}, 40960, true},
                      SpaceCase{"OneByteShort", {4096, 10}, 40961, false},
                      SpaceCase{"NothingWanted", {4096, 0}, 0, true}, SpaceCase{"FullVolume", {4096, 0}, 1, false},
                      SpaceCase{"Beyond32Bits", {4096, 1ULL << 30}, 1ULL << 42, true},
                      SpaceCase{"Beyond32BitsShort", {4096, 1ULL << 30}, (1ULL << 42) + 1, false},
                      SpaceCase{"LargestNumber", {1, ~0ULL}, ~0ULL, true},
                      SpaceCase{"ProductWrapsToZero", {1ULL << 32, 1ULL << 32}, 1, false},
                      SpaceCase{"ProductWrapsToZeroNothingWanted", {1ULL << 32, 1ULL << 32}, 0, true}),
    CaseName());

class FreeSpace : public PlatformTest {};

TEST_F(FreeSpace, IsNeverEnoughAtAnEmptyPathAndNobodyIsAsked) {
    EXPECT_FALSE(IsVolumeSpaceEnough("", 0));
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

TEST_F(FreeSpace, IsNeverEnoughAtAMissingPath) {
    EXPECT_FALSE(IsVolumeSpaceEnough("/volume9", 0));
}

TEST_F(FreeSpace, IsNeverEnoughWhenTheVolumeCannotBeAsked) {
    platform.addFolder("/volume1");
    platform.failCall("statfs64");
    EXPECT_FALSE(IsVolumeSpaceEnough("/volume1", 0));
    EXPECT_TRUE(IsVolumeSpaceEnough("/volume1", 0));
}

struct ShareCase {
    std::string name;
    ShareKind kind;
    bool valid;
};

class ShareValid : public PlatformTestWith<ShareCase> {};

TEST_P(ShareValid, DependsOnItsFileSystem) {
    platform.addShare("logs", GetParam().kind);
    EXPECT_EQ(SyslogIsShareValid("logs"), GetParam().valid);
}

TEST_P(ShareValid, TakesAnyNonzeroAnswerForAYes) {
    platform.addShare("logs", GetParam().kind);
    for (const int yes : {4, -1, 0x10000}) {
        platform.yes = yes;
        EXPECT_EQ(SyslogIsShareValid("logs"), GetParam().valid) << yes;
    }
}

TEST_P(ShareValid, ReleasesAlsoTheRecordOfAFailedLookup) {
    platform.failuresHandOutObjects = true;
    platform.addShare("logs", GetParam().kind);
    EXPECT_EQ(SyslogIsShareValid("logs"), GetParam().valid);
    EXPECT_EQ(platform.calls.count("VESKShareFree"), 1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ShareValid,
                         ::testing::Values(ShareCase{"Local", ShareKind::kLocal, true},
                                           ShareCase{"DiskImage", ShareKind::kImage, false},
                                           ShareCase{"Remote", ShareKind::kRemote, false},
                                           ShareCase{"UnknownFileSystem", ShareKind::kUnknownFileSystem, false},
                                           ShareCase{"NoSuchShare", ShareKind::kNotFound, false}),
                         CaseName());

class Shares : public PlatformTest {
protected:
    void SetUp() override { list = VLIBCSzListAlloc(1); }
    void TearDown() override {
        VLIBCSzListFree(list);
        PlatformTest::TearDown();
    }
    Lines listed() {
        Lines names;
        for (int i = 0; i < list->count; ++i)
            names.emplace_back(list->items[i]);
        return names;
    }

    VLIBSZLIST* list = nullptr;
};

TEST_F(Shares, AnEmptyNameIsNoShareAndNobodyIsAsked) {
    platform.calls.clear();
    EXPECT_FALSE(SyslogIsShareValid(""));
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

TEST_F(Shares, AreAskedForTheirPathWithTheAgreedArguments) {
    platform.addShare("logs");
    platform.calls.clear();
    EXPECT_TRUE(SyslogIsShareValid("logs"));
    EXPECT_THAT(platform.calls.linesOf({"VESKShareGet", "VESKGetFSType", "VESKShareFree"}),
                ElementsAre("VESKShareGet(\"logs\")", "VESKGetFSType(\"/volume1/logs\", 0)", "VESKShareFree()"));
}

TEST_F(Shares, UsableOnesAreListedInTheOrderOfTheEnumeration) {
    platform.addShare("zeta");
    platform.addShare("image", ShareKind::kImage);
    platform.addShare("alpha");
    platform.addShare("remote", ShareKind::kRemote);
    platform.addShare("gone", ShareKind::kNotFound);
    platform.addShare("odd", ShareKind::kUnknownFileSystem);
    platform.addShare("mid");
    EXPECT_EQ(SyslogAvailShareGet(&list), 0);
    EXPECT_THAT(listed(), ElementsAre("zeta", "alpha", "mid"));
}

TEST_F(Shares, AreAppendedToWhatTheListHolds) {
    platform.addShare("logs");
    (void)VLIBCSzListPush(&list, "before");
    EXPECT_EQ(SyslogAvailShareGet(&list), 0);
    EXPECT_THAT(listed(), ElementsAre("before", "logs"));
}

TEST_F(Shares, WithoutANameAreSkippedWithoutALookup) {
    platform.addShare("");
    platform.addShare("logs");
    EXPECT_EQ(SyslogAvailShareGet(&list), 0);
    EXPECT_THAT(listed(), ElementsAre("logs"));
    EXPECT_EQ(platform.calls.count("VESKShareGet"), 1);
}

TEST_F(Shares, AreEnumeratedIntoAListOf512WithFlags513) {
    platform.calls.clear();
    EXPECT_EQ(SyslogAvailShareGet(&list), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBCSzListAlloc(512)", "VESKShareEnum(513)", "VLIBCSzListFree()"));
}

TEST_F(Shares, CannotBeListedWithoutAList) {
    VLIBSZLIST* none = nullptr;
    platform.calls.clear();
    EXPECT_EQ(SyslogAvailShareGet(nullptr), -1);
    EXPECT_EQ(SyslogAvailShareGet(&none), -1);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

TEST_F(Shares, CannotBeListedWithoutMemory) {
    platform.addShare("logs");
    platform.failCall("VLIBCSzListAlloc");
    EXPECT_EQ(SyslogAvailShareGet(&list), -1);
    EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(Shares, CannotBeListedWhenTheEnumerationFails) {
    platform.addShare("logs");
    platform.failCall("VESKShareEnum");
    EXPECT_EQ(SyslogAvailShareGet(&list), -1);
    EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(Shares, OneThatCannotBeLookedUpDoesNotHideTheOthers) {
    platform.failuresHandOutObjects = true;
    platform.addShare("one");
    platform.addShare("two");
    platform.addShare("three");
    platform.failCall("VESKShareGet", 2);
    platform.failCall("VESKGetFSType", 2);
    EXPECT_EQ(SyslogAvailShareGet(&list), 0);
    EXPECT_THAT(listed(), ElementsAre("one"));
}

TEST_F(Shares, NothingIsLogged) {
    platform.failCall("VESKShareEnum");
    EXPECT_EQ(SyslogAvailShareGet(&list), -1);
    EXPECT_FALSE(SyslogIsShareValid("none"));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    EXPECT_THAT(platform.messages, IsEmpty());
}

class DatabaseMove : public PlatformTest {
protected:
    void SetUp() override {
        platform.addFile("/volume1/logs/a.DB", "rows");
        platform.addFolder("/volume1/archive");
    }
    void TearDown() override {
        EXPECT_THAT(platform.syslogLines, IsEmpty());
        EXPECT_THAT(platform.messages, IsEmpty());
        PlatformTest::TearDown();
    }
    static constexpr const char* kFrom = "/volume1/logs/a.DB";
    static constexpr const char* kTo = "/volume1/archive/b.DB";
};

TEST_F(DatabaseMove, PutsTheFileAtItsNewPlace) {
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(kTo), "rows");
    EXPECT_FALSE(platform.exists(kFrom));
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kTo));
}

TEST_F(DatabaseMove, AsksForTheSpaceOfTheDestinationFolder) {
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_THAT(platform.calls.linesOf({"statfs64"}), ElementsAre("statfs64(\"/volume1/archive\")"));
}

TEST_F(DatabaseMove, PassesTheFourFlagsAndNothingElse) {
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_THAT(platform.calls.linesOf({"VESKFileCopy"}),
                ElementsAre("VESKFileCopy(\"/volume1/logs/a.DB\", \"/volume1/archive/b.DB\", \"4 8 12 76\")"));
}

TEST_F(DatabaseMove, RemovesTheSourceThatThePlatformHasOnlyCopied) {
    platform.copyManner = CopyManner::kCopy;
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(kTo), "rows");
    EXPECT_FALSE(platform.exists(kFrom));
}

TEST_F(DatabaseMove, LeavesTheFreshFileThatAProgramHasBegunMeanwhile) {
    platform.copyManner = CopyManner::kMoveThenFresh;
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(kTo), "rows");
    EXPECT_EQ(platform.read(kFrom), "a fresh file");
}

TEST_F(DatabaseMove, FailsWhenTheCopiedSourceCannotBeRemoved) {
    platform.copyManner = CopyManner::kCopy;
    platform.failCall("unlink", 1, EACCES);
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), -1);
}

TEST_F(DatabaseMove, CopiesNothingThatItCouldNotTellFromANewFileAfterwards) {
    platform.copyManner = CopyManner::kCopy;
    platform.failCall("open", 1, EMFILE);
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), -1);
    EXPECT_EQ(platform.read(kFrom), "rows");
    EXPECT_FALSE(platform.exists(kTo));
}

TEST_F(DatabaseMove, RefusesAnEmptyDestination) {
    EXPECT_EQ(SyslogDBFileMove(kFrom, ""), -2);
    EXPECT_EQ(SyslogDBFileMove("", ""), -2);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

TEST_F(DatabaseMove, HasNothingToDoWithoutASource) {
    EXPECT_EQ(SyslogDBFileMove("", kTo), 0);
    EXPECT_EQ(SyslogDBFileMove("/volume1/logs/none.DB", kTo), 0);
    EXPECT_FALSE(platform.exists(kTo));
}

TEST_F(DatabaseMove, HasNothingToDoOntoItself) {
    EXPECT_EQ(SyslogDBFileMove(kFrom, kFrom), 0);
    EXPECT_EQ(platform.read(kFrom), "rows");
    EXPECT_EQ(platform.calls.count("VESKFileCopy"), 0);
}

TEST_F(DatabaseMove, FailsWhenTheSourceCannotBeAsked) {
    platform.failCall("stat64");
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), -1);
    EXPECT_EQ(platform.read(kFrom), "rows");
    EXPECT_EQ(platform.calls.count("VESKFileCopy"), 0);
}

TEST_F(DatabaseMove, TakesExactlyTheRoomOfTheFile) {
    platform.space["/volume1/archive"] = {1, 4};
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
}

TEST_F(DatabaseMove, RefusesAFolderWithoutRoom) {
    platform.space["/volume1/archive"] = {1, 3};
    platform.addFile(kTo, "old");
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), -5);
    EXPECT_EQ(platform.read(kFrom), "rows");
    EXPECT_EQ(platform.read(kTo), "old");
}

TEST_F(DatabaseMove, RefusesADestinationWithoutAFolder) {
    EXPECT_EQ(SyslogDBFileMove(kFrom, "b.DB"), -5);
    EXPECT_EQ(SyslogDBFileMove(kFrom, "/volume9/none/b.DB"), -5);
    EXPECT_EQ(platform.read(kFrom), "rows");
}

TEST_F(DatabaseMove, PutsAFileThatStandsThereAside) {
    platform.addFile(kTo, "old");
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(kTo), "rows");
    EXPECT_EQ(platform.read(std::string(kTo) + "_0"), "old");
    EXPECT_THAT(platform.calls.linesOf({"VESKFileCopy"}),
                ElementsAre("VESKFileCopy(\"/volume1/archive/b.DB\", \"/volume1/archive/b.DB_0\", \"4 8 12 76\")",
                            "VESKFileCopy(\"/volume1/logs/a.DB\", \"/volume1/archive/b.DB\", \"4 8 12 76\")"));
}

TEST_F(DatabaseMove, PutsItAsideAlsoWhereThePlatformOnlyCopies) {
    platform.copyManner = CopyManner::kCopy;
    platform.addFile(kTo, "old");
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(kTo), "rows");
    EXPECT_EQ(platform.read(std::string(kTo) + "_0"), "old");
    EXPECT_FALSE(platform.exists(kFrom));
}

TEST_F(DatabaseMove, TakesTheFirstFreeNumberForIt) {
    platform.addFile(kTo, "old");
    platform.addFile(std::string(kTo) + "_0", "older");
    platform.addFile(std::string(kTo) + "_1", "oldest");
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(std::string(kTo) + "_0"), "older");
    EXPECT_EQ(platform.read(std::string(kTo) + "_1"), "oldest");
    EXPECT_EQ(platform.read(std::string(kTo) + "_2"), "old");
}

TEST_F(DatabaseMove, FillsAGapInTheNumbers) {
    platform.addFile(kTo, "old");
    platform.addFile(std::string(kTo) + "_1", "oldest");
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(std::string(kTo) + "_0"), "old");
}

TEST_F(DatabaseMove, CountsBeyondOneDigit) {
    platform.addFile(kTo, "old");
    for (int n = 0; n <= 10; ++n)
        platform.addFile(std::string(kTo) + "_" + std::to_string(n), "older");
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(std::string(kTo) + "_11"), "old");
}

TEST_F(DatabaseMove, PassesOverANumberOfWhichNobodyCanTell) {
    platform.addFile(kTo, "old");
    platform.existAnswers[std::string(kTo) + "_0"] = -1;
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), 0);
    EXPECT_EQ(platform.read(std::string(kTo) + "_1"), "old");
}

TEST_F(DatabaseMove, GivesUpWhenNoNumberFitsBehindTheNameOfTheStandingFile) {
    const std::string longest = "/volume1/archive/" + std::string(254, 'b');
    platform.addFile(longest, "old");
    EXPECT_EQ(SyslogDBFileMove(kFrom, longest), -1);
    EXPECT_EQ(platform.read(kFrom), "rows");
    EXPECT_EQ(platform.read(longest), "old");
    EXPECT_EQ(platform.calls.count("VESKFileCopy"), 0);
}

TEST_F(DatabaseMove, StopsWhenTheStandingFileCannotBePutAside) {
    platform.addFile(kTo, "old");
    platform.failCall("VESKFileCopy", 1);
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), -1);
    EXPECT_EQ(platform.read(kFrom), "rows");
    EXPECT_EQ(platform.read(kTo), "old");
    EXPECT_EQ(platform.calls.count("VESKFileCopy"), 1);
}

TEST_F(DatabaseMove, LeavesTheBackupWhenTheMoveItselfFails) {
    platform.addFile(kTo, "old");
    platform.failCall("VESKFileCopy", 2);
    EXPECT_EQ(SyslogDBFileMove(kFrom, kTo), -1);
    EXPECT_EQ(platform.read(kFrom), "rows");
    EXPECT_FALSE(platform.exists(kTo));
    EXPECT_EQ(platform.read(std::string(kTo) + "_0"), "old");
}

TEST_F(DatabaseMove, TakesAPositiveCopyResultForAFailure) {
    platform.addFolder("/volume1/archive/b.DB_0");
    platform.addFolder("/volume1/archive/sub");
    // The folder of the destination vanishes between the test for room and the copy.
    platform.space["/volume1/vanished"] = {4096, 100};
    EXPECT_EQ(SyslogDBFileMove(kFrom, "/volume1/vanished/b.DB"), -1);
    EXPECT_EQ(platform.read(kFrom), "rows");
}

}  // namespace

}  // namespace ombrel::test
