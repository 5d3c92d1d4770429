// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Lines of the event file: those that the event log writes, and any others.
#include "linux/vesksyslog/event_line.h"

#include <gtest/gtest.h>

#include "linux/common/text_escape.h"
#include "linux/vesksyslog/event_log.h"
#include "tests/linux/child_process.h"

namespace ombrel {
namespace {

TEST(EventLineReader, ReadsWhatTheEventLogWrites) {
    const test::TemporaryFolder folder;
    const std::string path = folder.at("events.jsonl");
    const std::string text = "/srv/a \"quoted\"\\\n\t\x01name \xe2\x82\xac \xf0\x9f\x98\x80 \x7f";
    const EventField fields[] = {{"job", "pkg-Ombrel-bsd"}, {"exit_code", 78}, {"signal", std::string("KILL")}};
    ASSERT_TRUE(appendEventLine(path, kJobDied, text, fields));
    std::string line = test::readBytes(path);
    line.pop_back();
    const auto event = readEventLine(line);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->event, "job_died");
    EXPECT_EQ(event->text, text);
    EXPECT_EQ(event->job, "pkg-Ombrel-bsd");
    EXPECT_EQ(event->exitCode, 78);
    EXPECT_EQ(event->signal, "KILL");
}

TEST(EventLineReader, ReadsOverTheBytesOfARemovedArchive) {
    const test::TemporaryFolder folder;
    const std::string path = folder.at("events.jsonl");
    const EventField fields[] = {{"reason", std::string("free_space")}, {"bytes", 5'000'000'000LL}};
    ASSERT_TRUE(appendEventLine(path, kArchiveRemoved, "/srv/logs/2024-03-03_2024-03-09.DB", fields));
    std::string line = test::readBytes(path);
    line.pop_back();
    EXPECT_TRUE(line.ends_with(",\"reason\":\"free_space\",\"bytes\":5000000000}")) << line;
    const auto event = readEventLine(line);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->event, "archive_removed");
    EXPECT_EQ(event->text, "/srv/logs/2024-03-03_2024-03-09.DB");
}

struct LineCase {
    const char* name;
    std::string line;
};
void PrintTo(const LineCase& one, std::ostream* out) {
    *out << one.name;
}
std::string nameOf(const ::testing::TestParamInfo<LineCase>& info) {
    return info.param.name;
}

class ForeignLine : public ::testing::TestWithParam<LineCase> {};

TEST_P(ForeignLine, IsNoEvent) {
    EXPECT_FALSE(readEventLine(GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ForeignLine,
    ::testing::Values(LineCase{"Empty", ""}, LineCase{"Text", "archive_failed"}, LineCase{"Number", "12"},
                      LineCase{"EmptyObject", "{}"}, LineCase{"NoEvent", R"({"text":"x"})"},
                      LineCase{"EmptyEvent", R"({"event":""})"}, LineCase{"EventIsANumber", R"({"event":1})"},
                      LineCase{"CutOffInAText", R"({"event":"job_died","te)"},
                      LineCase{"CutOffBeforeItsEnd", R"({"event":"job_died")"},
                      LineCase{"Doubled", R"({"event":"job_died"}{"event":"job_died"})"},
                      LineCase{"CommaAtTheEnd", R"({"event":"job_died",})"},
                      LineCase{"Nested", R"({"event":"job_died","more":{"a":1}})"},
                      LineCase{"List", R"({"event":"job_died","more":[1]})"},
                      LineCase{"UnknownEscape", R"({"event":"job\x64died"})"},
                      LineCase{"HalfASurrogate", R"({"event":"job_died","text":"\ud83d"})"},
                      LineCase{"SecondSurrogateAlone", R"({"event":"job_died","text":"\ude00"})"},
                      LineCase{"SurrogateAndLetter", R"({"event":"job_died","text":"\ud83d\u0041"})"},
                      LineCase{"ShortEscape", R"({"event":"job_died","text":"\u12"})"},
                      LineCase{"SignedEscape", R"({"event":"job_died","text":"\u-123"})"},
                      LineCase{"EscapeAtTheEnd", "{\"event\":\"job_died\\"},
                      LineCase{"RawControlCharacter", "{\"event\":\"job_died\",\"text\":\"a\x1b[2J\"}"},
                      LineCase{"Nul", std::string("{\"event\":\"job_died\"\0}", 21)},
                      LineCase{"HugeNumber", R"({"event":"job_died","exit_code":99999999999999999999})"},
                      LineCase{"TooLong",
                               R"({"event":"job_died","text":")" + std::string(kLongestEventLine, 'x') + "\"}"}),
    nameOf);

TEST(EventLineReader, ReadsOverMembersThatItDoesNotKnow) {
    const auto event =
        readEventLine(R"( { "more" : -5 , "event" : "job_died" , "host" : "a" , "exit_code":300 } )");
    ASSERT_TRUE(event);
    EXPECT_EQ(event->event, "job_died");
    EXPECT_FALSE(event->exitCode);  // no exit code that a program can have
}

TEST(EventLineReader, ReadsTheLongestPathWithEveryByteEscaped) {
    const std::string path(4095, '\x01');
    const auto event = readEventLine("{\"event\":\"archive_failed\",\"text\":" + quoteJson(path) + "}");
    ASSERT_TRUE(event);
    EXPECT_EQ(event->text, path);
}

}  // namespace
}  // namespace ombrel
