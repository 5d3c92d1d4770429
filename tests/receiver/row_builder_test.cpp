// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What strangers send, from the bytes to the row in the database.
#include "receiver/store/row_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "receiver/store/working_database.h"
#include "tests/receiver/database_probe.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::ElementsAre;

constexpr std::int64_t kReceived = 1784548800;  // 2026-07-20 12:00:00 UTC

struct BadInput {
    const char* name;
    std::string raw;
    std::string host;
    std::string message;
};
void PrintTo(const BadInput& one, std::ostream* out) {
    *out << one.name;
}

class BadInputRow : public testing::TestWithParam<BadInput> {};

// What syslog(3), the kernel and the journal hand over.
struct LocalInput {
    const char* name;
    std::string raw;
    std::string program;
    std::string processId;
    std::string message;
};
void PrintTo(const LocalInput& one, std::ostream* out) {
    *out << one.name;
}

class LocalRow : public testing::TestWithParam<LocalInput> {};

TEST_P(LocalRow, IsOfThisMachine) {
    LocalClock clock;
    RowBuilder builder(clock);
    const auto row = builder.ofThisMachine({{1, 1}, kReceived, "127.0.0.1", GetParam().raw}, "box");
    ASSERT_TRUE(row);
    EXPECT_EQ(row->host, "box");
    EXPECT_EQ(row->parsed.program, GetParam().program);
    EXPECT_EQ(row->parsed.processId, GetParam().processId);
    EXPECT_EQ(row->parsed.message, GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    All, LocalRow,
    testing::Values(LocalInput{"OfSyslog", "<86>Jul 20 12:00:00 sshd[12]: hello", "sshd", "12", "hello"},
                    LocalInput{"WithBlankBehindTheName", "<13>Jul 20 12:00:00 a b: text", "a", "", "b: text"},
                    LocalInput{"Kernel", "<4>1 - - kernel - - - [    0.5] eth0: up", "kernel", "",
                               "[    0.5] eth0: up"},
                    LocalInput{"Journal", "<30>1 2026-07-20T12:00:00+00:00 - cron 7 - - ran", "cron", "7", "ran"},
                    LocalInput{"ThatNamesAHost", "<13>1 2026-07-20T12:00:00Z other app - - - x", "app", "", "x"},
                    LocalInput{"WithoutAnything", "just text", "", "", "just text"}),
    [](const auto& one) { return one.param.name; });

TEST(RowBuilder, LeavesOutBlankLinesOfThisMachine) {
    LocalClock clock;
    RowBuilder builder(clock);
    EXPECT_FALSE(builder.ofThisMachine({{1, 1}, kReceived, "127.0.0.1", "\n"}, "box"));
}

// Lines of which nothing is taken apart.
struct WholeInput {
    const char* name;
    std::string raw;
    std::string message;
};
void PrintTo(const WholeInput& one, std::ostream* out) {
    *out << one.name;
}

class WholeRow : public testing::TestWithParam<WholeInput> {};

TEST_P(WholeRow, HasTheWholeLineAsItsMessage) {
    LocalClock clock;
    RowBuilder builder(clock);
    const auto row = builder.whole({{7, 9}, kReceived, "::ffff:192.0.2.1", GetParam().raw});
    ASSERT_TRUE(row);
    EXPECT_EQ(row->id, (ReceiptId{7, 9}));
    EXPECT_EQ(row->time, kReceived);
    EXPECT_EQ(row->received, kReceived);
    EXPECT_FALSE(row->sent);
    EXPECT_EQ(row->host, "192.0.2.1");
    EXPECT_EQ(row->sender, "192.0.2.1");
    EXPECT_EQ(row->parsed.facility, 1);
    EXPECT_EQ(row->parsed.severity, 5);
    EXPECT_EQ(row->parsed.host, "");
    EXPECT_EQ(row->parsed.program, "");
    EXPECT_EQ(row->parsed.processId, "");
    EXPECT_EQ(row->parsed.messageId, "");
    EXPECT_EQ(row->parsed.structuredData, "");
    EXPECT_EQ(row->parsed.message, GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(All, WholeRow,
                         testing::Values(WholeInput{"PlainText", "just text", "just text"},
                                         WholeInput{"LooksClassic", "<86>Jul 20 12:00:00 other sshd[12]: hello\n",
                                                    "<86>Jul 20 12:00:00 other sshd[12]: hello"},
                                         WholeInput{"LooksModern",
                                                    "<165>1 2003-10-11T22:14:15Z h a 1 ID [x y=\"z\"] m\r\n",
                                                    "<165>1 2003-10-11T22:14:15Z h a 1 ID [x y=\"z\"] m"},
                                         WholeInput{"OnlyPri", "<13>", "<13>"},
                                         WholeInput{"OnlyBlanks", "  ", "  "},
                                         WholeInput{"Nul", std::string("a\0b\n", 4), "a#000b"},
                                         WholeInput{"NoUtf8", "\xff\xfe {\"k\":1}", "\xff\xfe {\"k\":1}"},
                                         WholeInput{"LineBreakInside", "a\nb\r\n\n", "a\nb"},
                                         WholeInput{"Long", std::string(70'000, 'x'), std::string(70'000, 'x')}),
                         [](const auto& one) { return one.param.name; });

TEST(RowBuilder, LeavesOutBlankLinesThatAreKeptWhole) {
    LocalClock clock;
    RowBuilder builder(clock);
    EXPECT_FALSE(builder.whole({{1, 1}, kReceived, "192.0.2.1", ""}));
    EXPECT_FALSE(builder.whole({{1, 1}, kReceived, "192.0.2.1", std::string_view("\r\n\0", 3)}));
}

TEST_P(BadInputRow, IsStoredClean) {
    const TempFolder folder;
    const std::string path = folder / "VESKSYSLOGDB__ARCH.DB";
    LocalClock clock;
    RowBuilder builder(clock);
    const auto row = builder.received({{1, 1}, kReceived, "192.0.2.1", GetParam().raw});
    ASSERT_TRUE(row);
    WorkingDatabase database(path, schemaText());
    const StoreOutcome outcome = database.store({{"bsd-udp", {*row}}}, clock);
    ASSERT_TRUE(outcome.stored) << outcome.error;
    EXPECT_THAT(messages(path), ElementsAre(GetParam().message));
    EXPECT_THAT(query(path, "SELECT name FROM hosts"), ElementsAre(GetParam().host));
    EXPECT_THAT(query(path, "SELECT name FROM senders"), ElementsAre("192.0.2.1"));
    EXPECT_THAT(query(path, "SELECT rutcsec FROM logs"), ElementsAre(std::to_string(kReceived)));
    EXPECT_THAT(query(path, "PRAGMA integrity_check"), ElementsAre("ok"));
}

const std::string kHead = "<13>Jul 20 12:00:00 ";

INSTANTIATE_TEST_SUITE_P(
    All, BadInputRow,
    testing::Values(
        BadInput{"ClimbingHost", kHead + "../../etc app: x", "../../etc", "x"},
        BadInput{"LongHost", kHead + std::string(5000, 'h') + " app: x", std::string(255, 'h'),
                 std::string(4745, 'h') + " app: x"},
        BadInput{"EscapeCodesInHost", kHead + "ho\x1b]0;st\x07 app: \x1b[2J", "ho\x1b]0;st\x07", "\x1b[2J"},
        BadInput{"Nul", kHead + std::string("host app: a\0b\0", 14), "host", "a#000b#000"},
        BadInput{"OnlyPri", "<13>", "192.0.2.1", ""}, BadInput{"NoPri", "hello", "192.0.2.1", "hello"},
        BadInput{"PriTooLarge", "<999>hello", "192.0.2.1", "<999>hello"},
        BadInput{"SixtyFourKibibytes", kHead + "host app: " + std::string(65536, 't'), "host",
                 std::string(65536, 't')},
        BadInput{"NoUtf8", kHead + "host app: \xff\xfe\xc3", "host", "\xff\xfe\xc3"},
        BadInput{"SqlInText", kHead + "h';DROP app: '); DROP TABLE logs;--", "h';DROP", "'); DROP TABLE logs;--"},
        BadInput{"LineBreaks", kHead + "host app: a\nb\r\n", "host", "a\nb"}),
    [](const auto& row) { return std::string(row.param.name); });

class RowBuilderTest : public testing::Test {
protected:
    LogRow received(std::string_view text, std::string_view sender = "192.0.2.1") {
        const auto row = builder.received({{1, 1}, kReceived, sender, text});
        EXPECT_TRUE(row);
        return row.value_or(LogRow());
    }
    LocalClock clock;
    RowBuilder builder{clock};
};

TEST_F(RowBuilderTest, LeavesLinesWithoutAnyTextOut) {
    EXPECT_FALSE(builder.received({{1, 1}, kReceived, "192.0.2.1", ""}));
    EXPECT_FALSE(builder.received({{1, 1}, kReceived, "192.0.2.1", std::string_view("\r\n\0", 3)}));
}

TEST_F(RowBuilderTest, KeepsBothTimesAndTrustsTheSenderForADay) {
    const LogRow near = received("<13>1 2026-07-20T10:00:00Z h a - - - x");
    EXPECT_EQ(near.sent, kReceived - 7200);
    EXPECT_EQ(near.time, kReceived - 7200);
    const LogRow far = received("<13>1 2020-01-01T00:00:00Z h a - - - x");
    EXPECT_EQ(far.sent, 1577836800);
    EXPECT_EQ(far.time, kReceived);
    EXPECT_FALSE(received("<13>x").sent);
}

TEST_F(RowBuilderTest, GivesIpv4SendersTheirPlainAddress) {
    EXPECT_EQ(received("x", "::ffff:192.0.2.7").sender, "192.0.2.7");
    EXPECT_EQ(received("x", "2001:db8::1").sender, "2001:db8::1");
}

TEST_F(RowBuilderTest, TakesTheTimeOfAnImportedLineHoweverOld) {
    const auto row = builder.imported("1 2003-10-11T22:14:15Z h a - - - x", "import", kReceived, std::nullopt, 5);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->time, 1065910455);
    EXPECT_EQ(row->received, 5);
    const auto ancient =
        builder.imported("1 0000-10-11T22:14:15Z h a - - - x", "import", kReceived, std::nullopt, 5);
    ASSERT_TRUE(ancient);
    EXPECT_EQ(ancient->time, kReceived);
    const auto bare = builder.imported("no time", "import", kReceived, std::nullopt, 5);
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->time, kReceived);
}

}  // namespace
}  // namespace ombrel
