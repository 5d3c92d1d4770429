// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/message_parser.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace ombrel {
namespace {

struct ParsedCase {
    const char* name;
    std::string raw;
    int facility;
    int severity;
    const char* host;
    const char* program;
    const char* pid;
    std::string message;
    bool hasTime;
};

void PrintTo(const ParsedCase& one, std::ostream* out) {
    *out << one.name;
}

class ParseMessage : public testing::TestWithParam<ParsedCase> {};

TEST_P(ParseMessage, TakesTheTextApart) {
    const ParsedCase& one = GetParam();
    const ParsedMessage parsed = parseMessage(one.raw);
    EXPECT_EQ(parsed.facility, one.facility);
    EXPECT_EQ(parsed.severity, one.severity);
    EXPECT_EQ(parsed.host, one.host);
    EXPECT_EQ(parsed.program, one.program);
    EXPECT_EQ(parsed.processId, one.pid);
    EXPECT_EQ(parsed.message, one.message);
    EXPECT_EQ(parsed.time.has_value(), one.hasTime);
}

const ParsedCase kClassic[] = {
    {"Rfc3164Example", "<34>Oct 11 22:14:15 mymachine su: 'su root' failed for lonvick on /dev/pts/8", 4, 2,
     "mymachine", "su", "", "'su root' failed for lonvick on /dev/pts/8", true},
    {"PidInBrackets", "<13>Oct  1 02:03:04 host app[123]: text", 1, 5, "host", "app", "123", "text", true},
    {"PamStyle", "<85>Jun 14 15:16:01 combo sshd(pam_unix)[19939]: authentication failure; logname= uid=0", 10, 5,
     "combo", "sshd(pam_unix)", "19939", "authentication failure; logname= uid=0", true},
    {"TagEndsWithBlank", "<13>Oct 11 22:14:15 host app text", 1, 5, "host", "app", "", "text", true},
    {"ColonWithoutBlank", "<13>Oct 11 22:14:15 host app:text", 1, 5, "host", "app", "", "text", true},
    {"PathAsProgram", "<13>Oct 11 22:14:15 host /usr/sbin/cron[7]: x", 1, 5, "host", "/usr/sbin/cron", "7", "x",
     true},
    {"NoPri", "Oct 11 22:14:15 host app: text", 1, 5, "host", "app", "", "text", true},
    {"NoHost", "<13>Oct 11 22:14:15 app: text", 1, 5, "", "app", "", "text", true},
    {"NoHostWithPid", "<13>Oct 11 22:14:15 app[9]: text", 1, 5, "", "app", "9", "text", true},
    {"IsoTime", "<13>2026-11-21T05:05:01.123+01:00 host app: text", 1, 5, "host", "app", "", "text", true},
    {"Repeated", "<13>Oct 11 22:14:15 host last message repeated 3 times", 1, 5, "host", "", "",
     "last message repeated 3 times", true},
    {"RepeatedWithoutHost", "<13>Oct 11 22:14:15 last message repeated 3 times", 1, 5, "", "", "",
     "last message repeated 3 times", true},
    {"YearAndColon", "<166>Nov 21 2026 05:05:05: %ASA-6-302013: Built", 20, 6, "", "%ASA-6-302013", "", "Built",
     true},
    {"KernelStamp", "<6>Oct 11 22:14:15 host [ 12.5] usb 1-1", 0, 6, "host", "", "", "[ 12.5] usb 1-1", true},
    {"Json", "<13>Oct 11 22:14:15 host {\"a\": 1}", 1, 5, "host", "", "", "{\"a\": 1}", true},
    {"BracketNotClosed", "<13>Oct 11 22:14:15 host app[12 text", 1, 5, "host", "", "", "app[12 text", true},
    {"Ipv6Host", "<13>Oct 11 22:14:15 2001:db8::1 app: text", 1, 5, "2001:db8::1", "app", "", "text", true},
    {"HighestPri", "<191>Oct 11 22:14:15 host app: x", 23, 7, "host", "app", "", "x", true},
    {"LineEndTrimmed", "<13>Oct 11 22:14:15 host app: x\r\n", 1, 5, "host", "app", "", "x", true},
    {"InnerLineBreakKept", "<13>Oct 11 22:14:15 host app: x\ny\n", 1, 5, "host", "app", "", "x\ny", true},
};
INSTANTIATE_TEST_SUITE_P(Classic, ParseMessage, testing::ValuesIn(kClassic),
                         [](const auto& row) { return std::string(row.param.name); });

const ParsedCase kBare[] = {
    {"OnlyPri", "<13>no header at all", 1, 5, "", "", "", "no header at all", false},
    {"TagWithoutTime", "<34>su: failed", 4, 2, "", "su", "", "failed", false},
    {"CiscoCounter", "<189>123: *Mar  1 18:46:11: %SYS-5-CONFIG_I: Configured", 23, 5, "", "", "",
     "123: *Mar  1 18:46:11: %SYS-5-CONFIG_I: Configured", false},
    {"Address", "<13>http://host/path", 1, 5, "", "", "", "http://host/path", false},
    {"NoPriNoTime", "hello world", 1, 5, "", "", "", "hello world", false},
    {"PriTooLarge", "<999>Oct 11 22:14:15 host app: x", 1, 5, "", "", "", "<999>Oct 11 22:14:15 host app: x",
     false},
    {"PriJustTooLarge", "<192>x", 1, 5, "", "", "", "<192>x", false},
    {"PriNotClosed", "<13 x", 1, 5, "", "", "", "<13 x", false},
    {"PriEmpty", "<>x", 1, 5, "", "", "", "<>x", false},
    {"PriOnly", "<13>", 1, 5, "", "", "", "", false},
    {"NoSuchDay", "<13>Feb 30 22:14:15 host app: x", 1, 5, "", "", "", "Feb 30 22:14:15 host app: x", false},
    {"NoSuchHour", "<13>Feb 20 25:14:15 host app: x", 1, 5, "", "", "", "Feb 20 25:14:15 host app: x", false},
    {"TimeRunsOn", "<13>Oct 11 22:14:15x host", 1, 5, "", "", "", "Oct 11 22:14:15x host", false},
    {"Empty", "", 1, 5, "", "", "", "", false},
};
INSTANTIATE_TEST_SUITE_P(Bare, ParseMessage, testing::ValuesIn(kBare),
                         [](const auto& row) { return std::string(row.param.name); });

const ParsedCase kModern[] = {
    {"Example1", "<34>1 2003-10-11T22:14:15.003Z mymachine.example.com su - ID47 - \xEF\xBB\xBF'su root' failed",
     4, 2, "mymachine.example.com", "su", "", "'su root' failed", true},
    {"Nil", "<165>1 - - - - - -", 20, 5, "", "", "", "", false},
    {"NilWithText", "<165>1 - - - - - - text", 20, 5, "", "", "", "text", false},
    {"WithoutPri", "1 2003-10-11T22:14:15Z host app 77 - - text", 1, 5, "host", "app", "77", "text", true},
    {"OtherVersion", "<165>2 2003-10-11T22:14:15Z host app - - - x", 20, 5, "", "", "",
     "2 2003-10-11T22:14:15Z host app - - - x", false},
    {"DataNotClosed", "<165>1 2003-10-11T22:14:15Z host app - - [a b=\"c\" x", 20, 5, "", "", "",
     "1 2003-10-11T22:14:15Z host app - - [a b=\"c\" x", false},
};
INSTANTIATE_TEST_SUITE_P(Modern, ParseMessage, testing::ValuesIn(kModern),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(ParseModernMessage, KeepsStructuredDataWithItsEscapes) {
    const ParsedMessage parsed =
        parseMessage(R"(<165>1 2003-10-11T22:14:15Z host app 1 ID47 [a@1 x="]\"\\"][b@1] text)");
    EXPECT_EQ(parsed.structuredData, R"([a@1 x="]\"\\"][b@1])");
    EXPECT_EQ(parsed.messageId, "ID47");
    EXPECT_EQ(parsed.message, "text");
}

TEST(ParseMessageBounds, CutsALongHostAndKeepsItsRestInTheMessage) {
    const std::string host(5000, 'h');
    const std::string raw = "<13>Oct 11 22:14:15 " + host + " app: text";
    const ParsedMessage parsed = parseMessage(raw);
    EXPECT_EQ(parsed.host, host.substr(0, kMaxHost));
    EXPECT_EQ(parsed.message, host.substr(kMaxHost) + " app: text");
    EXPECT_EQ(parsed.program, "");
}

TEST(ParseMessageBounds, TakesAnOverlongWordForText) {
    const std::string word(kMaxProgram + 1, 'p');
    const std::string raw = "<13>Oct 11 22:14:15 host " + word + ": text";
    const ParsedMessage parsed = parseMessage(raw);
    EXPECT_EQ(parsed.program, "");
    EXPECT_EQ(parsed.message, word + ": text");
}

TEST(ParseMessageBounds, KeepsSixtyFourKibibytesWhole) {
    const std::string text(64 << 10, 't');
    const std::string raw = "<13>Oct 11 22:14:15 host app: " + text;
    EXPECT_EQ(parseMessage(raw).message, text);
}

TEST(ParseMessageBounds, KeepsBytesThatAreNoUtf8AndTerminalEscapes) {
    const std::string raw = "<13>Oct 11 22:14:15 ho\x1b[31mst app: \xff\xfe\xc3";
    const ParsedMessage parsed = parseMessage(raw);
    EXPECT_EQ(parsed.message, "ho\x1b[31mst app: \xff\xfe\xc3") << "a bracket in it, so no host name";
    EXPECT_EQ(parseMessage("<13>Oct 11 22:14:15 ../../etc app: x").host, "../../etc");
}

TEST(FacilityName, IsThatOfItsNumber) {
    EXPECT_EQ(facilityName(0), "kern");
    EXPECT_EQ(facilityName(10), "authpriv");
    EXPECT_EQ(facilityName(15), "solaris-cron");
    EXPECT_EQ(facilityName(23), "local7");
}

}  // namespace
}  // namespace ombrel
