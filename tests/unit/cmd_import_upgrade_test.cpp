// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel import` and `ombrel upgrade`: what the programs behind them are told.
#include "tests/unit/command_line_run.h"

namespace ombrel::test::cmd_import_upgrade {

namespace {

using Lines = std::vector<std::string>;

constexpr const char* kWriter = "/var/packages/Ombrel/target/sbin/ombrel-logwriter";
constexpr const char* kUpgrade = "/var/packages/Ombrel/target/sbin/ombrel-upgrade";

struct PassedOn {
    Lines said;
    Lines run;
};

TEST(ImportAndUpgrade, PassTheirWordsOn) {
    const PassedOn kCases[] = {
        {{"import", "a.log"}, {kWriter, "--import=a.log", "--"}},
        {{"import", "-", "--year", "2023", "--host", "gate"},
         {kWriter, "--import=-", "--year=2023", "--host=gate", "--"}},
        {{"--json", "import", "--", "--year=7", "-x"}, {kWriter, "--import=--year=7", "--json", "--", "-x"}},
        {{"upgrade", "--all", "--zip", "--dry-run"}, {kUpgrade, "--all", "--dry-run", "--zip", "--"}},
        {{"upgrade", "--remove-old", "a.DB", "--json", "--", "--all"},
         {kUpgrade, "--remove-old", "--json", "--", "a.DB", "--all"}},
    };
    for (const PassedOn& one : kCases) {
        CommandLineRun command;
        fakeMachine().execResult = 75;
        EXPECT_EQ(command.run(one.said), 75);
        EXPECT_EQ(command.out + command.err, "");
        ASSERT_EQ(fakeMachine().executed.size(), 1U) << ::testing::PrintToString(one.said);
        EXPECT_EQ(fakeMachine().executed[0], one.run);
    }
}

struct Refused {
    Lines said;
    const char* complaint;
};

TEST(ImportAndUpgrade, RefuseWrongWordsThemselves) {
    const Refused kCases[] = {
        {{"import"}, "its word FILE is missing; ombrel import --help says more"},
        {{"import", "a", ""}, "a file has no name; ombrel import --help says more"},
        {{"import", "a", "--year", "24"},
         "--year \"24\": expected a number from 1970 to 9999; ombrel import --help says more"},
        {{"upgrade"}, "expected either --all or the paths of databases; ombrel upgrade --help says more"},
        {{"upgrade", "--all", "a.DB"},
         "expected either --all or the paths of databases; ombrel upgrade --help says more"},
    };
    for (const Refused& one : kCases) {
        CommandLineRun command;
        EXPECT_EQ(command.run(one.said), 64);
        EXPECT_EQ(command.err, std::string("ombrel: ") + one.complaint + "\n");
        EXPECT_TRUE(fakeMachine().executed.empty());
    }
}

TEST(ImportAndUpgrade, SayTheirOwnHelp) {
    CommandLineRun command;
    EXPECT_EQ(command.run({"import", "--help"}), 0);
    EXPECT_TRUE(command.out.starts_with("usage: ombrel import [OPTION...] FILE...\n")) << command.out;
    EXPECT_EQ(command.run({"upgrade", "--help"}), 0);
    EXPECT_TRUE(command.out.starts_with("usage: ombrel upgrade [OPTION...] [PATH...]\n")) << command.out;
    EXPECT_TRUE(fakeMachine().executed.empty());
}

}  // namespace

}  // namespace ombrel::test::cmd_import_upgrade
