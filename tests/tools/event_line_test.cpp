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

TEST(EventLineReader, KeepsTheTimeAndAllOtherMembersInTheirOrder) {
    const auto event = readEventLine(
        R"({"time":"2024-03-03T12:30:00+01:00","event":"archive_removed","text":"/x","reason":"age","bytes":5000000000})");
    ASSERT_TRUE(event);
    EXPECT_EQ(event->time, "2024-03-03T12:30:00+01:00");
    ASSERT_EQ(event->more.size(), 2U);
    EXPECT_EQ(event->more[0].first, "reason");
    EXPECT_EQ(std::get<std::string>(event->more[0].second), "age");
    EXPECT_EQ(event->more[1].first, "bytes");
    EXPECT_EQ(std::get<long long>(event->more[1].second), 5'000'000'000);
}

TEST(EventTime, IsReadWithItsOffset) {
    EXPECT_EQ(secondsOfEvent("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(secondsOfEvent("2024-03-09T12:00:00Z"), 1709985600);
    EXPECT_EQ(secondsOfEvent("2024-03-09T13:00:00+01:00"), 1709985600);
    EXPECT_EQ(secondsOfEvent("2024-03-09T06:30:00-05:30"), 1709985600);
    EXPECT_EQ(secondsOfEvent("2024-02-29T00:00:00+00:00"), 1709164800);
    EXPECT_EQ(secondsOfEvent("2016-12-31T23:59:60Z"), 1483228800) << "a leap second";
}

TEST(EventTime, IsNothingElse) {
    for (const char* text : {"",
                             "junk",
                             "today",
                             "2024-03-09",
                             "2024-03-09T12:00:00",
                             "2024-03-09 12:00:00Z",
                             "2024-03-09T12:00:00z",
                             "2024-02-30T12:00:00Z",
                             "2024-13-01T12:00:00Z",
                             "2024-00-01T12:00:00Z",
                             "2024-03-00T12:00:00Z",
                             "2024-03-09T24:00:00Z",
                             "2024-03-09T12:60:00Z",
                             "2024-03-09T12:00:61Z",
                             "2024-03-09T12:00:00+1:00",
                             "2024-03-09T12:00:00+01:60",
                             "2024-03-09T12:00:00+24:00",
                             "2024-03-09T12:00:00+0100",
                             "2024-03-09T12:00:00Zx",
                             "+024-03-09T12:00:00Z",
                             "2024-+3-09T12:00:00Z",
                             "2024-03-09T12:00:00+-1:00"})
        EXPECT_FALSE(secondsOfEvent(text)) << text;
}

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
