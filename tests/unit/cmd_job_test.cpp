// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel job` on the recording platform.
#include "tests/fake/platform_test.h"
#include "tests/unit/command_line_run.h"

namespace ombrel::test::cmd_job {

namespace {

using ::testing::HasSubstr;

class JobCommandLine : public PlatformTest {
protected:
    int run(Lines words) {
        words.insert(words.begin(), "job");
        platform.error.code = 0;
        return line.run(words);
    }

    CommandLineRun line;
    std::string& out = line.out;
    std::string& err = line.err;
};

TEST_F(JobCommandLine, SwitchesAJobInSilence) {
    EXPECT_EQ(run({"start", "pkg-Ombrel-bsd"}), 0);
    EXPECT_EQ(platform.jobs["pkg-Ombrel-bsd"], 1);
    EXPECT_EQ(run({"restart", "pkg-Ombrel-bsd"}), 0);
    EXPECT_EQ(run({"reload", "pkg-Ombrel-bsd"}), 0);
    EXPECT_EQ(out + err, "");
    EXPECT_EQ(run({"stop", "pkg-Ombrel-bsd", "--json"}), 0);
    EXPECT_EQ(out, "{\"job\":\"pkg-Ombrel-bsd\",\"running\":false}\n");
    EXPECT_EQ(platform.jobs["pkg-Ombrel-bsd"], 0);
}

TEST_F(JobCommandLine, TellsWhetherItRuns) {
    platform.jobs["one"] = 1;
    EXPECT_EQ(run({"status", "one"}), 0);
    EXPECT_EQ(out, "one: running\n");
    EXPECT_EQ(run({"status", "two"}), 1);
    EXPECT_EQ(out, "two: stopped\n");
    EXPECT_EQ(run({"--json", "status", "one"}), 0);
    EXPECT_EQ(out, "{\"job\":\"one\",\"running\":true}\n");
}

TEST_F(JobCommandLine, SaysInOneLineWhatFailed) {
    const std::pair<int, const char*> cases[] = {{0x203, "there is no such job"},
                                                 {0x206, "not in time; the job's log says why"},
                                                 {0x1000 + ECONNREFUSED, "the service manager cannot be reached"},
                                                 {0x1000 + ESRCH, "it is not running"},
                                                 {0x1000 + EOPNOTSUPP, "the job has no such action"},
                                                 {0x1000 + EACCES, "Permission denied"},
                                                 {0x207, "the job's log and the system log say why"}};
    platform.failEveryCall("VLIBServicectlJobStart");
    for (const auto& [code, words] : cases) {
        platform.calls.onFailure = [this, code = code] { platform.error.code = code; };
        EXPECT_EQ(run({"start", "a\x1b[2J"}), 1);
        EXPECT_THAT(err, HasSubstr(std::string("ombrel: a\\x1b[2J could not be started: ") + words));
        EXPECT_EQ(out, "");
    }
    EXPECT_EQ(run({"start"}), 64);
    EXPECT_EQ(run({"stop", "one", "two"}), 64);
    EXPECT_EQ(run({"begin", "one"}), 64);
    EXPECT_THAT(err, HasSubstr("no command \"begin\"; expected start, stop, restart, reload or status"));
}

TEST_F(JobCommandLine, NamesTheRightThatAPlainUserLacks) {
    constexpr const char* kRun = "/var/packages/Ombrel/target/service/run";
    fakeMachine().checked.isRoot = false;
    platform.failEveryCall("VLIBServicectlJobStart");
    struct Case {
        int code;
        bool mayRead;
        int exitCode;
    };
    for (const Case& each : {Case{0x1000 + EACCES, true, 77},
                             {0x1000 + EOPNOTSUPP, false, 77},
                             {0x1000 + EOPNOTSUPP, true, 1},
                             {0x1000 + ESRCH, false, 1}}) {
        fakeMachine().checked.files[kRun] = {FileFacts::Kind::kFolder, 0700, 0, false, each.mayRead, false};
        platform.calls.onFailure = [this, &each] { platform.error.code = each.code; };
        EXPECT_EQ(run({"start", "one"}), each.exitCode) << each.code;
        EXPECT_EQ(err.find("is missing (/var/packages/Ombrel/target/service/run); run this as root") !=
                      std::string::npos,
                  each.exitCode == 77);
    }
}

}  // namespace

}  // namespace ombrel::test::cmd_job
