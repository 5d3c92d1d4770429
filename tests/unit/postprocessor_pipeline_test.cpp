// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Host index, ZIP file, and the road of a new archive.
#include <cstring>

#include "tests/unit/postprocessor_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kBase = "/volume1/logs/2024-03-03_2024-03-09";
const std::string kPipelineDb = kBase + ".DB";
const std::string kText = kBase + ".TXT";
const std::string kZip = kBase + ".ZIP";
const std::string kIndex = "CREATE INDEX logs_host_idx ON logs (host)";

class HostIndex : public PostProcessorTest {};

TEST_F(HostIndex, IsMadeInATransaction) {
    platform.addDatabase(kPipelineDb, textDatabase(1));
    EXPECT_EQ(processor.DBIndexAdd(kPipelineDb), 0);
    EXPECT_THAT(platform.database(kPipelineDb)->indexes, ElementsAre(kIndex));
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("DBHandler(\"" + kPipelineDb + "\", \"" + kSchema + "\")", "DBCon()", "DBTranStart()",
                            "DBExecute(\"" + kIndex + "\")", "DBTranEnd()", "DBDiscon()", "~DBHandler()"));
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(HostIndex, CannotBeMadeTwice) {
    platform.addDatabase(kPipelineDb, textDatabase(1));
    EXPECT_EQ(processor.DBIndexAdd(kPipelineDb), 0);
    platform.calls.clear();
    EXPECT_EQ(processor.DBIndexAdd(kPipelineDb), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to execute SQL cmd" + kIndex));
    EXPECT_THAT(platform.database(kPipelineDb)->indexes, ElementsAre(kIndex));
    EXPECT_EQ(platform.calls.count("DBTranEnd"), 0);
    EXPECT_EQ(platform.calls.count("DBDiscon"), 1);
}

TEST_F(HostIndex, CannotBeMadeWithoutADatabase) {
    EXPECT_EQ(processor.DBIndexAdd(kPipelineDb), -1);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("DBHandler(\"" + kPipelineDb + "\", \"" + kSchema + "\")", "DBCon()",
                            "MSG(0, \"Fail to connect db\")", "DBDiscon()", "~DBHandler()"));
}

TEST_F(HostIndex, DoesNotAskWhetherTheTransactionBegan) {
    platform.addDatabase(kPipelineDb, textDatabase(1));
    platform.failCall("DBTranStart");
    EXPECT_EQ(processor.DBIndexAdd(kPipelineDb), 0);
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(HostIndex, DoesNotAskWhetherTheTransactionEnded) {
    platform.addDatabase(kPipelineDb, textDatabase(1));
    platform.failCall("DBTranEnd");
    EXPECT_EQ(processor.DBIndexAdd(kPipelineDb), 0);
    EXPECT_THAT(platform.messages, IsEmpty());
}

class ZipFile : public PostProcessorTest {};

TEST_F(ZipFile, TakesOneFile) {
    platform.addFile("/v/a.DB", "A");
    EXPECT_EQ(processor.FileCompress("/v/a.DB", "", "/v/a.ZIP"), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBCExec(\"/usr/bin/zip\", \"-m\", \"/v/a.ZIP\", \"/v/a.DB\", null)"));
    EXPECT_THAT(platform.filesBelow("/v"), ElementsAre("/v/a.ZIP"));
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(ZipFile, TakesTwoFiles) {
    platform.addFile("/v/a.DB", "A");
    platform.addFile("/v/a.TXT", "T");
    EXPECT_EQ(processor.FileCompress("/v/a.DB", "/v/a.TXT", "/v/a.ZIP"), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBCExec(\"/usr/bin/zip\", \"-m\", \"/v/a.ZIP\", \"/v/a.DB\", \"/v/a.TXT\")"));
    EXPECT_EQ(platform.read("/v/a.ZIP"), "a.DB:A\na.TXT:T\n");
}

TEST_F(ZipFile, ThatCannotBeMadeNamesTheFirstFileAndTheReason) {
    platform.addFile("/v/a b.DB", "A");
    platform.failCall("VLIBCExec", 1, ENOSPC);
    EXPECT_EQ(processor.FileCompress("/v/a b.DB", "/v/a.TXT", "/v/%s.ZIP"), -1);
    EXPECT_THAT(platform.messages,
                ElementsAre(std::string("0 Fail to compress file: /v/%s.ZIP,/v/a b.DB ") + strerror(ENOSPC)));
    EXPECT_TRUE(platform.exists("/v/a b.DB"));
}

class Transform : public PostProcessorTest {};

TEST_F(Transform, ToTextStandsBesideTheDatabase) {
    platform.addDatabase(kPipelineDb, textDatabase(1));
    EXPECT_EQ(processor.DBTransform(kPipelineDb, SYSLOG_ARCH_FMT_TXT), 0);
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kPipelineDb, kText));
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(Transform, ToTextThatFailsIsReported) {
    platform.addDatabase(kPipelineDb, textDatabase(1));
    platform.failCall("SyslogDBSelectCount");
    EXPECT_EQ(processor.DBTransform(kPipelineDb, SYSLOG_ARCH_FMT_TXT), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Fail to transform db to txt"));
    EXPECT_TRUE(platform.exists(kPipelineDb));
}

TEST_F(Transform, ToXmlMakesNothingAndSucceeds) {
    EXPECT_EQ(processor.DBTransform(kPipelineDb, SYSLOG_ARCH_FMT_XML), 0);
    EXPECT_EQ(processor.DB2XML(kPipelineDb, kBase + ".XML"), 0);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

class TransformToNothing : public PostProcessorTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(TransformToNothing, IsReported) {
    EXPECT_EQ(processor.DBTransform(kPipelineDb, static_cast<_SYSLOG_ARCH_FMT_tag>(GetParam())), -1);
    EXPECT_THAT(platform.messages, ElementsAre("0 Invalid db transfrom foramt"));
    EXPECT_EQ(platform.calls.lines().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Format, TransformToNothing, ::testing::Values(0U, 3U, 4294967295U));

struct TextNameCase {
    std::string name;
    std::string path;
    std::string text;
};

class TextName : public PostProcessorTest, public ::testing::WithParamInterface<TextNameCase> {};

TEST_P(TextName, ReplacesTheLastThreeCharacters) {
    platform.addDatabase(GetParam().path, textDatabase(1));
    EXPECT_EQ(processor.DBTransform(GetParam().path, SYSLOG_ARCH_FMT_TXT), 0);
    EXPECT_TRUE(platform.exists(GetParam().text)) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(Paths, TextName,
                         ::testing::Values(TextNameCase{"Database", "/v/x.DB", "/v/x.TXT"},
                                           TextNameCase{"OtherExtension", "/v/x.db3", "/v/x..TXT"},
                                           TextNameCase{"NoExtension", "/v/abcd", "/v/a.TXT"},
                                           TextNameCase{"Short", "v/x", ".TXT"}),
                         CaseName());

class Pipeline : public PostProcessorTest {
protected:
    Pipeline() { platform.addDatabase(kPipelineDb, textDatabase(1)); }

    int run(_SYSLOG_ARCH_FMT_tag format, int compress) {
        processor.ArchFmt = format;
        processor.Compress = compress;
        return processor.PostProcess(kPipelineDb);
    }
    void occupyZips(int from, int to) {
        for (int n = from; n <= to; ++n)
            platform.addFile(kBase + "_" + std::to_string(n) + ".ZIP", "taken");
    }
};

TEST_F(Pipeline, HasNothingToDoForPlainDatabases) {
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_DB, 0), 0);
    processor.ArchFmt = SYSLOG_ARCH_FMT_DB;
    EXPECT_EQ(processor.PostProcess("/volume9/none.DB"), 0);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

TEST_F(Pipeline, PutsADatabaseIntoAZipFile) {
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_DB, 1), 0);
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kZip));
    EXPECT_THAT(platform.messages, ElementsAre("2 Do database compression!!"));
    EXPECT_THAT(
        platform.calls.lines(),
        ElementsAre("MSG(2, \"Do database compression!!\")", "VLIBCFileExist(\"" + kZip + "\")",
                    "VLIBCExec(\"/usr/bin/zip\", \"-m\", \"" + kZip + "\", \"" + kPipelineDb + "\", null)"));
}

TEST_F(Pipeline, WritesATextBesideTheDatabase) {
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_TXT, 0), 0);
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kPipelineDb, kText));
    EXPECT_THAT(platform.messages, ElementsAre("2 Do database transformation!!"));
}

TEST_F(Pipeline, PutsDatabaseAndTextIntoAZipFile) {
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_TXT, 7), 0);
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kZip));
    EXPECT_THAT(
        platform.calls.linesOf({"VLIBCExec"}).back(),
        "VLIBCExec(\"/usr/bin/zip\", \"-m\", \"" + kZip + "\", \"" + kPipelineDb + "\", \"" + kText + "\")");
    EXPECT_THAT(platform.messages, ElementsAre("2 Do database transformation!!", "2 Do database compression!!"));
}

TEST_F(Pipeline, XmlLeavesTheDatabaseAlone) {
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_XML, 0), 0);
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kPipelineDb));
    EXPECT_THAT(platform.calls.lines(), ElementsAre("MSG(2, \"Do database transformation!!\")"));
}

TEST_F(Pipeline, XmlPutsTheDatabaseAloneIntoAZipFile) {
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_XML, 1), 0);
    EXPECT_THAT(platform.calls.linesOf({"VLIBCExec"}), ElementsAre("VLIBCExec(\"/usr/bin/zip\", \"-m\", \"" +
                                                                   kZip + "\", \"" + kPipelineDb + "\", null)"));
}

TEST_F(Pipeline, AddsNoIndex) {
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_TXT, 1), 0);
    EXPECT_EQ(platform.calls.count("DBExecute"), 0);
}

TEST_F(Pipeline, TakesTheLowestFreeNumberForTheZipFile) {
    platform.addFile(kZip, "taken");
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_DB, 1), 0);
    EXPECT_TRUE(platform.exists(kBase + "_1.ZIP"));
    EXPECT_EQ(platform.read(kZip), "taken");
}

TEST_F(Pipeline, CountsOnBehindTheTakenNumbers) {
    platform.addFile(kZip, "taken");
    occupyZips(1, 4);
    occupyZips(6, 6);
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_DB, 1), 0);
    EXPECT_TRUE(platform.exists(kBase + "_5.ZIP"));
    EXPECT_FALSE(platform.exists(kPipelineDb));
}

TEST_F(Pipeline, AnyNonzeroAnswerMeansThatTheNameIsTaken) {
    platform.existAnswers[kZip] = -1;
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_DB, 1), 0);
    EXPECT_TRUE(platform.exists(kBase + "_1.ZIP"));
}

TEST_F(Pipeline, GoesUpToNumberOneThousand) {
    platform.addFile(kZip, "taken");
    occupyZips(1, 999);
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_DB, 1), 0);
    EXPECT_TRUE(platform.exists(kBase + "_1000.ZIP"));
}

TEST_F(Pipeline, FailsWhenAllNumbersAreTaken) {
    platform.addFile(kZip, "taken");
    occupyZips(1, 1000);
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_DB, 1), -1);
    EXPECT_THAT(platform.messages,
                ElementsAre("2 Do database compression!!", "0 Cannot find propriate archive destination"));
    EXPECT_EQ(platform.calls.count("VLIBCFileExist"), 1001);
    EXPECT_EQ(platform.calls.linesOf({"VLIBCFileExist"}).back(), "VLIBCFileExist(\"" + kBase + "_1000.ZIP\")");
    EXPECT_TRUE(platform.exists(kPipelineDb));
    EXPECT_EQ(platform.calls.count("VLIBCExec"), 0);
}

TEST_F(Pipeline, CompressesNothingAfterAFailedExport) {
    platform.failCall("SyslogDBSelect");
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_TXT, 1), -1);
    EXPECT_THAT(platform.messages,
                ElementsAre("2 Do database transformation!!", "0 Fail to select database",
                            "0 Fail to transform db to txt", "0 Fail to transform db: " + kPipelineDb));
    EXPECT_TRUE(platform.exists(kPipelineDb));
    EXPECT_FALSE(platform.exists(kZip));
}

TEST_F(Pipeline, CompressesNothingForAnUnknownFormat) {
    EXPECT_EQ(run(static_cast<_SYSLOG_ARCH_FMT_tag>(5), 1), -1);
    EXPECT_THAT(platform.messages, ElementsAre("2 Do database transformation!!", "0 Invalid db transfrom foramt",
                                               "0 Fail to transform db: " + kPipelineDb));
    EXPECT_FALSE(platform.exists(kZip));
}

TEST_F(Pipeline, ReportsAZipThatCannotBeRun) {
    platform.failCall("VLIBCExec", 1, ENOENT);
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_DB, 1), -1);
    EXPECT_THAT(platform.messages,
                ElementsAre("2 Do database compression!!",
                            "0 Fail to compress file: " + kZip + "," + kPipelineDb + " " + strerror(ENOENT),
                            "0 Fail to compress file"));
    EXPECT_TRUE(platform.exists(kPipelineDb));
}

TEST_F(Pipeline, ServesOneArchiveAfterTheOther) {
    EXPECT_EQ(run(SYSLOG_ARCH_FMT_TXT, 1), 0);
    platform.addDatabase(kPipelineDb, textDatabase(2));
    EXPECT_EQ(processor.PostProcess(kPipelineDb), 0);
    EXPECT_THAT(platform.filesBelow("/volume1"), ElementsAre(kZip, kBase + "_1.ZIP"));
}

}  // namespace

}  // namespace ombrel::test
