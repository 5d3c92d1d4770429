// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The debug sink. The system log of this program is the one below.
#include <gmock/gmock.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "platform/vesksyslog.h"

namespace {

std::vector<std::pair<int, std::string>>& logged() {
    static std::vector<std::pair<int, std::string>> lines;
    return lines;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    logged().emplace_back(priority, line);
}

namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

class DebugSink : public ::testing::Test {
protected:
    void SetUp() override {
        logged().clear();
        (void)::unsetenv("OMBREL_DEBUG");
    }
    void TearDown() override { (void)::unsetenv("OMBREL_DEBUG"); }

    static std::string shown(int level, const std::string& text) {
        ::testing::internal::CaptureStderr();
        Debuger::MSG(level, text);
        return ::testing::internal::GetCapturedStderr();
    }
};

TEST_F(DebugSink, SendsFailuresAndNoticesToTheSystemLog) {
    Debuger::MSG(0, "Fail to load configuration");
    Debuger::MSG(2, "Do database compression!!");
    EXPECT_THAT(logged(), ElementsAre(Pair(LOG_ERR, "Fail to load configuration"),
                                      Pair(LOG_DEBUG, "Do database compression!!")));
}

TEST_F(DebugSink, TakesNoTextForAFormat) {
    Debuger::MSG(0, "100%s %n done");
    EXPECT_THAT(logged(), ElementsAre(Pair(LOG_ERR, "100%s %n done")));
}

TEST_F(DebugSink, EscapesControlCharacters) {
    Debuger::MSG(0, "two\nlines \x1b[2J");
    EXPECT_THAT(logged(), ElementsAre(Pair(LOG_ERR, "two\\x0alines \\x1b[2J")));
}

TEST_F(DebugSink, ShowsNothingUnlessAsked) {
    EXPECT_EQ(shown(0, "failure"), "");
    ASSERT_EQ(::setenv("OMBREL_DEBUG", "", 1), 0);
    EXPECT_EQ(shown(0, "failure"), "");
    ASSERT_EQ(::setenv("OMBREL_DEBUG", "yes", 1), 0);
    EXPECT_EQ(shown(0, "failure"), "");
}

TEST_F(DebugSink, ShowsLevelsUpToTheOneAskedFor) {
    ASSERT_EQ(::setenv("OMBREL_DEBUG", "1", 1), 0);
    EXPECT_EQ(shown(0, "failure"), "failure\n");
    EXPECT_EQ(shown(1, "warning\x1b"), "warning\\x1b\n");
    EXPECT_EQ(shown(2, "notice"), "");
}

}  // namespace
