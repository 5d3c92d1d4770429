// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Loading the archiver's configuration.
#include "ombrel/logarchiver.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ArchiverConfig : public PlatformTest {
protected:
    static void expectTheSample(const LogArchiver& archiver) {
        EXPECT_EQ(archiver.ArchCount, 5000);
        EXPECT_EQ(archiver.ArchInterval, 86400);
        EXPECT_EQ(archiver.ArchSize, 64);
        EXPECT_EQ(archiver.ArchFmt, SYSLOG_ARCH_FMT_TXT);
        EXPECT_EQ(archiver.Compress, 1);
        EXPECT_EQ(archiver.ByDevice, 1);
        EXPECT_EQ(archiver.strArchDest, "/volume1/logs");
        EXPECT_EQ(archiver.LastArchTime, 1600000000);
    }
};

TEST_F(ArchiverConfig, IsLoadedFromTheSettingsFileOfThePackage) {
    platform.addFile(kServerConf, sampleText());
    const LogArchiver archiver;
    expectTheSample(archiver);
}

TEST_F(ArchiverConfig, IsDumpedLineByLine) {
    platform.addFile(kServerConf, sampleText());
    const LogArchiver archiver;
    EXPECT_THAT(platform.messages,
                ElementsAre("2 ======Archiver Configuration======>", "2 ArchCount: 5000", "2 ArchInterval: 86400",
                            "2 ArchSize: 64", "2 ArchFmt: 2", "2 Compress: 1", "2 ByDevice: 1",
                            "2 strArchDest: /volume1/logs", "2 LastArchTime: 1600000000", "2 "));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(ArchiverConfig, WithoutAFileIsReportedTwiceAndAllRulesAreOff) {
    const LogArchiver archiver;
    EXPECT_THAT(platform.messages,
                ElementsAre("0 Fail to get syslog configuration", "0 Fail to load configuration"));
    EXPECT_EQ(archiver.ArchCount, 0);
    EXPECT_EQ(archiver.ArchInterval, 0);
    EXPECT_EQ(archiver.ArchSize, 0);
    EXPECT_EQ(archiver.LastArchTime, 0);
    EXPECT_EQ(archiver.strArchDest, "");
    EXPECT_THAT(platform.calls.linesOf({"time"}), IsEmpty());
}

TEST_F(ArchiverConfig, ThatCannotBeLoadedLeavesEveryMemberAlone) {
    platform.addFile(kServerConf, sampleText());
    LogArchiver archiver;
    platform.messages.clear();
    EXPECT_EQ(archiver.ConfigLoad("/conf/none"), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to get syslog configuration"));
    expectTheSample(archiver);
}

TEST_F(ArchiverConfig, ASecondLoadReplacesTheFirst) {
    platform.addFile(kServerConf, sampleText());
    LogArchiver archiver;
    platform.addFile("/conf/other.conf",
                     sampleText({{"arch_count", "9"}, {"arch_dest", "/d"}, {"arch_fmt", "xml"}}));
    EXPECT_EQ(archiver.ConfigLoad("/conf/other.conf"), 0);
    EXPECT_EQ(archiver.ArchCount, 9);
    EXPECT_EQ(archiver.strArchDest, "/d");
    EXPECT_EQ(archiver.ArchFmt, SYSLOG_ARCH_FMT_XML);
}

TEST_F(ArchiverConfig, AMissingSettingMakesTheLoadFail) {
    platform.addFile(kServerConf, sampleText({}, {"system_flush_timeout"}));
    const LogArchiver archiver;
    EXPECT_THAT(platform.messages,
                ElementsAre("0 Fail to get syslog configuration", "0 Fail to load configuration"));
    EXPECT_EQ(archiver.strArchDest, "");
}

TEST_F(ArchiverConfig, TakesTheTimeOfLoadingWhenNothingWasEverArchived) {
    platform.now = 1712345678;
    platform.addFile(kServerConf, sampleText({{"arch_last_time", "0"}}));
    const LogArchiver archiver;
    EXPECT_EQ(archiver.LastArchTime, 1712345678);
    EXPECT_THAT(platform.messages, Contains("2 LastArchTime: 1712345678"));
}

TEST_F(ArchiverConfig, NeverWritesTheSettingsFile) {
    platform.addFile(kServerConf, sampleText({{"arch_last_time", "0"}}));
    const LogArchiver archiver;
    EXPECT_EQ(platform.read(kServerConf), sampleText({{"arch_last_time", "0"}}));
    EXPECT_EQ(platform.calls.count("VLIBCFileSetKeys"), 0);
}

struct DumpCase {
    std::string name;
    Settings settings;
    std::string line;
};

class ArchiverDump : public PlatformTestWith<DumpCase> {};

TEST_P(ArchiverDump, ShowsWhatWasLoaded) {
    platform.addFile(kServerConf, sampleText(GetParam().settings));
    const LogArchiver archiver;
    EXPECT_THAT(platform.messages, Contains(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ArchiverDump,
    ::testing::Values(
        DumpCase{"CountSwitchedOff", {{"arch_count_enable", "0"}}, "2 ArchCount: 0"},
        DumpCase{"CountSwitchNotExactlyOne", {{"arch_count_enable", "yes"}}, "2 ArchCount: 0"},
        DumpCase{"TimeSwitchedOff", {{"arch_time_enable", "0"}}, "2 ArchInterval: 0"},
        DumpCase{"SizeHasNoSwitch", {{"arch_time_enable", "0"}, {"arch_count_enable", "0"}}, "2 ArchSize: 64"},
        DumpCase{"NegativeCountAsUnsigned", {{"arch_count", "-1"}}, "2 ArchCount: 18446744073709551615"},
        DumpCase{"NegativeIntervalAsUnsigned", {{"arch_time", "-2"}}, "2 ArchInterval: 18446744073709551614"},
        DumpCase{"NegativeSizeAsUnsigned", {{"arch_size", "-64"}}, "2 ArchSize: 18446744073709551552"},
        DumpCase{"NegativeLastTimeAsUnsigned",
                 {{"arch_last_time", "3000000000"}},
                 "2 LastArchTime: 18446744072414584320"},
        DumpCase{"DatabaseFormat", {{"arch_fmt", "db"}}, "2 ArchFmt: 0"},
        DumpCase{"XmlFormat", {{"arch_fmt", "xml"}}, "2 ArchFmt: 1"},
        DumpCase{"UnknownFormat", {{"arch_fmt", "pdf"}}, "2 ArchFmt: 0"},
        DumpCase{"NoCompression", {{"arch_compress", "0"}}, "2 Compress: 0"},
        DumpCase{"NotByDevice", {{"arch_by_device", "true"}}, "2 ByDevice: 0"},
        DumpCase{"EmptyFolder", {{"arch_dest", ""}}, "2 strArchDest: "}),
    CaseName());

}  // namespace

}  // namespace ombrel::test
