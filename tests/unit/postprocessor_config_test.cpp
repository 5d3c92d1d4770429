// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The post-processor's settings and its scratch folder.
#include "tests/unit/postprocessor_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PostProcessorConfig : public PlatformTest {};

TEST_F(PostProcessorConfig, IsLoadedFromTheSettingsFileOfThePackage) {
    platform.addFile(kServerConf, sampleText());
    const PostProcessor processor;
    EXPECT_EQ(processor.ArchFmt, SYSLOG_ARCH_FMT_TXT);
    EXPECT_EQ(processor.Compress, 1);
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(PostProcessorConfig, WithoutAFileIsReportedTwiceAndNothingIsToBeDone) {
    PostProcessor processor;
    EXPECT_THAT(platform.messages,
                ElementsAre("0 Fail to get syslog configuration", "0 Fail to load configuration"));
    platform.calls.clear();
    EXPECT_EQ(processor.PostProcess("/volume1/x.DB"), 0);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

TEST_F(PostProcessorConfig, ThatCannotBeLoadedLeavesBothMembersAlone) {
    platform.addFile(kServerConf, sampleText());
    PostProcessor processor;
    EXPECT_EQ(processor.ConfigLoad("/conf/none"), -1);
    EXPECT_EQ(processor.ArchFmt, SYSLOG_ARCH_FMT_TXT);
    EXPECT_EQ(processor.Compress, 1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to get syslog configuration"));
}

TEST_F(PostProcessorConfig, ASecondLoadReplacesBothMembers) {
    platform.addFile(kServerConf, sampleText());
    PostProcessor processor;
    platform.addFile("/conf/other.conf", sampleText({{"arch_fmt", "xml"}, {"arch_compress", "0"}}));
    EXPECT_EQ(processor.ConfigLoad("/conf/other.conf"), 0);
    EXPECT_EQ(processor.ArchFmt, SYSLOG_ARCH_FMT_XML);
    EXPECT_EQ(processor.Compress, 0);
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(PostProcessorConfig, AnUnknownFormatMeansDatabase) {
    platform.addFile(kServerConf, sampleText({{"arch_fmt", "zip"}, {"arch_compress", "yes"}}));
    const PostProcessor processor;
    EXPECT_EQ(processor.ArchFmt, SYSLOG_ARCH_FMT_DB);
    EXPECT_EQ(processor.Compress, 0);
}

struct ScratchCase {
    std::string name;
    std::string path;
    std::string folder;  // empty: none is made
};

class ScratchFolder : public PostProcessorTest, public ::testing::WithParamInterface<ScratchCase> {};

TEST_P(ScratchFolder, LiesOnTheVolumeOfTheFile) {
    EXPECT_EQ(processor.TranTempDirGet(GetParam().path), GetParam().folder);
    EXPECT_THAT(platform.messages, IsEmpty());
    if (GetParam().folder.empty()) {
        EXPECT_THAT(platform.calls.lines(), IsEmpty());
    } else {
        EXPECT_THAT(platform.calls.lines(),
                    ElementsAre("VESKFSMkdirP(\"" + GetParam().folder + "\", 0, 1, -1, -1, 0777)"));
        EXPECT_TRUE(platform.exists(GetParam().folder));
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, ScratchFolder,
                         ::testing::Values(ScratchCase{"Deep", "/volume2/a/b/c.DB", "/volume2/@tmp/"},
                                           ScratchCase{"AtTheTop", "/volume2/c.DB", "/volume2/@tmp/"},
                                           ScratchCase{"FolderPath", "/volume2/", "/volume2/@tmp/"},
                                           ScratchCase{"NoVolume", "/c.DB", ""}, ScratchCase{"Empty", "", ""},
                                           ScratchCase{"SlashAlone", "/", ""},
                                           ScratchCase{"NameAlone", "c.DB", ""},
                                           ScratchCase{"Relative", "vol/x.DB", "vol/@tmp/"},
                                           ScratchCase{"DoubledSlash", "//x", "//@tmp/"}),
                         CaseName());

TEST_F(PostProcessorConfig, AScratchFolderThatCannotBeMadeIsReportedAndNamedAllTheSame) {
    PostProcessor processor;
    platform.messages.clear();
    platform.failCall("VESKFSMkdirP", 1, EROFS);
    EXPECT_EQ(processor.TranTempDirGet("/volume1/x.DB"), "/volume1/@tmp/");
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to create folder: /volume1/@tmp/"));
}

}  // namespace

}  // namespace ombrel::test
