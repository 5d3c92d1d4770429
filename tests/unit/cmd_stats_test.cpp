// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel stats`: counts of working databases and archives, and how they are shown.
#include "tests/receiver/in_zone.h"
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/log_rows.h"
#include "tools/ombrel/stats_show.h"

namespace ombrel::test::cmd_stats {

namespace {

constexpr const char* kArchive = "/volume1/logs/1970-01-02_1970-01-02.DB";
constexpr const char* kLater = "/volume1/logs/1970-01-05_1970-01-06.DB";

class StatsCommand : public PlatformTest {
protected:
    StatsCommand() {
        platform.addFolder(kDest);
        platform.addFile(kServerConf, sampleText({{"arch_by_device", "0"}}));
        FakeDatabase& live = platform.addDatabase(kSharedDb, emptyLogs());
        addRow(live, 60, "disk full", {1, 1, 2});
        addRow(live, 3600, "hello", {2, 2, 6});
        FakeDatabase& archive = platform.addDatabase(kArchive, emptyLogs());
        archive.startDay = archive.endDay = "1970-01-02";
        for (int i = 0; i < 3; ++i)
            addRow(archive, 7200 + i, "hello", {1, 1, 6});
    }

    InZone utc{"UTC"};
    CommandLineRun command;
};

struct Counted {
    Lines words;
    const char* out;
};

TEST_F(StatsCommand, CountsByWhateverRowsHaveInCommon) {
    const Counted kCases[] = {
        {{"stats"}, "alpha\t4\nbeta\t1\n"},
        {{"stats", "--by", "program"}, "sshd\t4\ncron\t1\n"},
        {{"stats", "--by", "severity"}, "info\t4\ncrit\t1\n"},
        {{"stats", "--by", "hour"}, "1970-01-02 00:00\t1\n1970-01-02 01:00\t1\n1970-01-02 02:00\t3\n"},
        {{"stats", "--by", "hour", "--limit", "1"}, "1970-01-02 02:00\t3\n(others)\t2\n"},
        {{"stats", "--by", "day"}, "1970-01-02\t5\n"},
        {{"stats", "--in", "live"}, "alpha\t1\nbeta\t1\n"},
        {{"stats", "--in", "archives"}, "alpha\t3\n"},
        {{"stats", "--limit", "1"}, "alpha\t4\n(others)\t1\n"},
        {{"stats", "--text", "HELLO"}, "alpha\t3\nbeta\t1\n"},
        {{"stats", "--regex", "^h.l*o$", "--in", "archives"}, "alpha\t3\n"},
        {{"stats", "--severity", "err"}, "alpha\t1\n"},
        {{"stats", "--host", "none of them"}, ""},
    };
    for (const Counted& one : kCases) {
        EXPECT_EQ(command.run(one.words), 0) << ::testing::PrintToString(one.words);
        EXPECT_EQ(command.out, one.out) << ::testing::PrintToString(one.words);
        EXPECT_EQ(command.err, "");
    }
}

TEST_F(StatsCommand, AnswersInJson) {
    EXPECT_EQ(command.run({"stats", "--by", "severity", "--limit", "1", "--json"}), 0);
    EXPECT_EQ(command.out,
              R"({"by":"severity","rows":5,"counts":[{"severity":"info","rows":4}],"other_rows":1,"files_read":2,)"
              R"("files_failed":0})"
              "\n");
}

TEST_F(StatsCommand, LooksOnlyIntoArchivesOfTheDaysThatAreAskedFor) {
    addRow(platform.addDatabase(kLater, emptyLogs()), 5, "of the second, in an archive of the fifth");
    platform.calls.clear();
    EXPECT_EQ(command.run({"stats", "--until", "1970-01-02", "--in", "archives"}), 0);
    EXPECT_EQ(command.out, "alpha\t3\n");
    EXPECT_EQ(command.run({"stats", "--until", "1970-01-05", "--in", "archives"}), 0);
    EXPECT_EQ(command.out, "alpha\t4\n");
}

TEST_F(StatsCommand, CountsWhatCanBeReadAndSaysWhatCannot) {
    platform.addDatabase(kLater, emptyLogs()).opens = false;
    EXPECT_EQ(command.run({"stats", "--json"}), 66);
    EXPECT_EQ(command.out.substr(command.out.find("\"files_read\"")), "\"files_read\":2,\"files_failed\":1}\n");
    EXPECT_TRUE(command.err.starts_with(std::string("ombrel: ") + kLater + ": ")) << command.err;
    EXPECT_EQ(command.run({"stats", "--by", "week"}), 64);
    EXPECT_EQ(command.run({"stats", "--since", "never"}), 64);
    platform.removeFile(kServerConf);
    EXPECT_EQ(command.run({"stats"}), 78);
}

TEST(StatsCounts, KeepTheLargestInBoundedMemory) {
    NameCounts counts(3);
    for (const char* name : {"a", "b", "c", "d", "e"})
        counts.add(name, static_cast<unsigned long long>(name[0]));
    counts.add("f");
    EXPECT_EQ(counts.others(), 1U + 'a' + 'b');
    EXPECT_EQ(counts.total(), 1U + 'a' + 'b' + 'c' + 'd' + 'e');
    NameCounts sum(3);
    sum.add("e");
    sum.addOthers(7);
    counts.add(sum);
    EXPECT_EQ(counts.largest(), (std::vector<NameCounts::Entry>{{"e", 'e' + 1}, {"d", 'd'}, {"c", 'c'}}));
    EXPECT_EQ(counts.others(), 8U + 'a' + 'b');
}

TEST(StatsChart, ShowsBarsOnATerminal) {
    StatsResult result;
    result.counts.add("alpha", 1200);
    result.counts.add("be\x1b[2Jta", 300);
    result.counts.add("", 1);
    Context context;
    context.out.isTerminal = true;
    context.out.columns = 62;
    EXPECT_EQ(statsText(statsAnswer(std::move(result), StatsBy::kHost, "host", 0), context),
              "HOST          ROWS   SHARE  \n"
              "alpha        1,200  79.9 %  #################################\n"
              "be\\x1b[2Jta    300  20.0 %  ########\n"
              "-                1   0.1 %  #\n");
    StatsResult bySeverity;
    bySeverity.counts.add("err", 3);
    context.out.hasColours = true;
    EXPECT_NE(statsText(statsAnswer(std::move(bySeverity), StatsBy::kSeverity, "severity", 0), context)
                  .find("\x1b[31merr\x1b[0m"),
              std::string::npos);
}

}  // namespace

}  // namespace ombrel::test::cmd_stats
