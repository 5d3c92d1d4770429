// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The folders of an upgrade: of the live database's share, of the archives, for scratch files.
#include "ombrel/utils_updater.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class UpgradeFolders : public PlatformTest {
protected:
    void SetUp() override {
        platform.addShare("logs");
        write({});
    }
    void TearDown() override {
        EXPECT_THAT(platform.messages, IsEmpty());
        PlatformTest::TearDown();
    }
    void write(const Settings& changed) { platform.addFile(kServerConf, sampleText(changed)); }
};

TEST_F(UpgradeFolders, AreThoseOfTheSettings) {
    EXPECT_EQ(SyslogUpdaterServiceFolderGet(), "/volume1/logs");
    EXPECT_EQ(SyslogUpdaterArchiveFolderGet(), "/volume1/logs");
    EXPECT_EQ(SyslogUpdaterVolTmpFolderGet(), "/volume1/@tmp/");
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

// ---- without settings

struct Question {
    std::string name;
    std::string (*ask)();
};

class EachUpgradeFolder : public UpgradeFolders, public ::testing::WithParamInterface<Question> {};

TEST_P(EachUpgradeFolder, IsEmptyWithoutSettingsAndSaysNothing) {
    platform.removeFile(kServerConf);
    EXPECT_EQ(GetParam().ask(), "");
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    EXPECT_THAT(platform.calls.linesOf({"VESKShareGet", "VESKFSMkdirP"}), IsEmpty());
}

TEST_P(EachUpgradeFolder, IsEmptyWithHalfTheSettingsAndSaysNothing) {
    platform.addFile(kServerConf, sampleText({}, {"arch_fmt"}));
    EXPECT_EQ(GetParam().ask(), "");
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    EXPECT_THAT(platform.calls.linesOf({"VESKShareGet", "VESKFSMkdirP"}), IsEmpty());
}

TEST_P(EachUpgradeFolder, FollowsTheSettingsFromCallToCall) {
    platform.addShare("other");
    const std::string before = GetParam().ask();
    write({{"server_db_loc", "other"}, {"server_db_path", "/volume2/db"}, {"arch_dest", "/volume2/archive"}});
    EXPECT_NE(GetParam().ask(), before);
}

INSTANTIATE_TEST_SUITE_P(Questions, EachUpgradeFolder,
                         ::testing::Values(Question{"Service", SyslogUpdaterServiceFolderGet},
                                           Question{"Archive", SyslogUpdaterArchiveFolderGet},
                                           Question{"Scratch", SyslogUpdaterVolTmpFolderGet}),
                         CaseName());

// ---- the share

TEST_F(UpgradeFolders, TheShareIsAskedForByItsNameAndReleased) {
    (void)SyslogUpdaterServiceFolderGet();
    EXPECT_THAT(platform.calls.linesOf({"VESKShareGet", "VESKShareFree"}),
                ElementsAre("VESKShareGet(\"logs\")", "VESKShareFree()"));
}

TEST_F(UpgradeFolders, AShareThatIsNotThereIsLogged) {
    write({{"server_db_loc", "none %s"}});
    EXPECT_EQ(SyslogUpdaterServiceFolderGet(), "");
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils_updater:40 Fail to get share information "));
}

TEST_F(UpgradeFolders, ALookUpThatFailsReleasesTheRecordThatItHandedOut) {
    platform.failuresHandOutObjects = true;
    platform.failCall("VESKShareGet");
    EXPECT_EQ(SyslogUpdaterServiceFolderGet(), "");
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils_updater:40 Fail to get share information "));
    EXPECT_EQ(platform.calls.count("VESKShareFree"), 1);
}

TEST_F(UpgradeFolders, ALookUpWithoutARecordNamesNoFolder) {
    platform.addShare("bare", ShareKind::kWithoutRecord);
    write({{"server_db_loc", "bare"}});
    EXPECT_EQ(SyslogUpdaterServiceFolderGet(), "");
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(UpgradeFolders, AShareWithoutAPathNamesNoFolder) {
    platform.addShare("bare", ShareKind::kWithoutPath);
    write({{"server_db_loc", "bare"}});
    EXPECT_EQ(SyslogUpdaterServiceFolderGet(), "");
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

// ---- the archive folder

struct ArchiveFolder {
    std::string name;
    std::string value;
};

class UpgradeArchiveFolder : public UpgradeFolders, public ::testing::WithParamInterface<ArchiveFolder> {};

TEST_P(UpgradeArchiveFolder, IsTheSettingAsItStands) {
    write({{"arch_dest", GetParam().value}});
    EXPECT_EQ(SyslogUpdaterArchiveFolderGet(), GetParam().value);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    EXPECT_FALSE(platform.exists("/volume7"));
}

INSTANTIATE_TEST_SUITE_P(Values, UpgradeArchiveFolder,
                         ::testing::Values(ArchiveFolder{"Folder", "/volume1/archive"}, ArchiveFolder{"Empty", ""},
                                           ArchiveFolder{"NotThere", "/volume7/none"},
                                           ArchiveFolder{"Relative", "archive"},
                                           ArchiveFolder{"TrailingSlash", "/volume1/archive/"}),
                         CaseName());

// ---- the scratch folder

struct Scratch {
    std::string name;
    std::string databasePath;
    std::string folder;
};

class UpgradeScratchFolder : public UpgradeFolders, public ::testing::WithParamInterface<Scratch> {
protected:
    [[nodiscard]] Lines made() const { return platform.calls.linesOf({"VESKFSMkdirP"}); }
};

TEST_P(UpgradeScratchFolder, LiesOnTheVolumeOfTheDatabaseAndIsMade) {
    write({{"server_db_path", GetParam().databasePath}});
    EXPECT_EQ(SyslogUpdaterVolTmpFolderGet(), GetParam().folder);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    if (GetParam().folder.empty()) {
        EXPECT_THAT(made(), IsEmpty());
    } else {
        EXPECT_THAT(made(), ElementsAre("VESKFSMkdirP(\"" + GetParam().folder + "\", 0, 1, -1, -1, 0777)"));
        EXPECT_TRUE(platform.exists(GetParam().folder));
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, UpgradeScratchFolder,
                         ::testing::Values(Scratch{"Deep", "/volume1/logs/db", "/volume1/@tmp/"},
                                           Scratch{"OneFolder", "/volume3/db", "/volume3/@tmp/"},
                                           Scratch{"TrailingSlash", "/volume1/", "/volume1/@tmp/"},
                                           Scratch{"VolumeAlone", "/volume1", ""}, Scratch{"Root", "/", ""},
                                           Scratch{"Empty", "", ""}, Scratch{"OneLetter", "x", ""},
                                           Scratch{"Relative", "volume2/x", "volume2/@tmp/"},
                                           Scratch{"SecondIsASlash", "//x", "//@tmp/"},
                                           Scratch{"OneLetterVolume", "v/x", "v/@tmp/"}),
                         CaseName());

TEST_F(UpgradeFolders, AScratchFolderThatCannotBeMadeIsLoggedAndNamedAllTheSame) {
    write({{"server_db_path", "/volume%s/db"}});
    platform.failCall("VESKFSMkdirP");
    EXPECT_EQ(SyslogUpdaterVolTmpFolderGet(), "/volume%s/@tmp/");
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils_updater:90 Fail to create folder: /volume%s/@tmp/"));
}

}  // namespace

}  // namespace ombrel::test
