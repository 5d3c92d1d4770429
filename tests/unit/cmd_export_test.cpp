// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel export`: what stands in the file, and that there is none after a failure.
#include "tests/receiver/in_zone.h"
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/log_rows.h"

namespace ombrel::test::cmd_export {

namespace {

constexpr const char* kFirst = "/volume1/logs/1970-01-02_1970-01-02.DB";
constexpr const char* kSecond = "/volume1/logs/1970-01-02_1970-01-02_1.DB";
constexpr const char* kOut = "/volume1/out/all.txt";

class ExportCommand : public PlatformTest {
protected:
    ExportCommand() {
        platform.addFolder("/volume1/out");
        platform.addFolder("/tmp");
        FakeDatabase& first = platform.addDatabase(kFirst, emptyLogs());
        addRow(first, 60, "one\ttab\x1b");
        addRow(first, 61, "two, \"quoted\"", {2, 2, 3});
        addRow(platform.addDatabase(kSecond, emptyLogs()), 5, "three");
    }

    InZone utc{"UTC"};
    CommandLineRun command;
};

constexpr const char* kText =
    "1970-01-02\t00:01:00\tinfo\talpha\tauth\tsshd\tone\ttab\x1b\r\n"
    "1970-01-02\t00:01:01\terr\tbeta\tauth\tcron\ttwo, \"quoted\"\r\n"
    "1970-01-02\t00:00:05\tinfo\talpha\tauth\tsshd\tthree\r\n";

TEST_F(ExportCommand, PutsTheTextsOfDatabasesBehindEachOther) {
    EXPECT_EQ(command.run({"export", kFirst, kSecond, "--to", kOut}), 0) << command.err;
    EXPECT_EQ(platform.read(kOut), kText);
    EXPECT_EQ(command.out, std::string(kOut) + "\t3\t" + std::to_string(std::string_view(kText).size()) + "\n");
    EXPECT_EQ(platform.filesBelow("/volume1/out"), Lines({kOut}));
    EXPECT_EQ(platform.filesBelow("/volume1/@tmp"), Lines());
}

TEST_F(ExportCommand, WritesCsvAndJson) {
    EXPECT_EQ(command.run({"export", kFirst, "--to", "/volume1/out/a.csv", "--json"}), 0) << command.err;
    const std::string csv =
        "time,received,severity,host,facility,program,process_id,message_id,sender,message\r\n"
        "1970-01-02T00:01:00+00:00,1970-01-02T00:01:00+00:00,info,alpha,auth,sshd,,,192.0.2.7,one\\x09tab\\x1b\r\n"
        "1970-01-02T00:01:01+00:00,1970-01-02T00:01:01+00:00,err,beta,auth,cron,,,192.0.2.7,"
        "\"two, \"\"quoted\"\"\"\r\n";
    EXPECT_EQ(platform.read("/volume1/out/a.csv"), csv);
    EXPECT_EQ(command.out,
              "{\"file\":\"/volume1/out/a.csv\",\"rows\":2,\"bytes\":" + std::to_string(csv.size()) + "}\n");
    fakeMachine() = {};
    EXPECT_EQ(command.run({"export", kSecond, "--to", "-", "--format", "ndjson"}), 0);
    EXPECT_EQ(command.out, "") << "all of it went to the output";
    EXPECT_EQ(fakeMachine().output,
              R"({"time":"1970-01-02T00:00:05+00:00","received":"1970-01-02T00:00:05+00:00","severity":"info",)"
              R"("host":"alpha","facility":"auth","program":"sshd","process_id":"","message_id":"",)"
              R"("sender":"192.0.2.7","message":"three"})"
              "\n");
}

TEST_F(ExportCommand, ReplacesAFileOnlyWhenItIsToldTo) {
    platform.addFile(kOut, "mine");
    EXPECT_EQ(command.run({"export", kSecond, "--to", kOut}), 74);
    EXPECT_EQ(command.err, std::string("ombrel: ") + kOut + " is there already; --force replaces it\n");
    EXPECT_EQ(platform.read(kOut), "mine");
    EXPECT_EQ(command.run({"export", kSecond, "--to", kOut, "--force"}), 0);
    EXPECT_EQ(platform.read(kOut), "1970-01-02\t00:00:05\tinfo\talpha\tauth\tsshd\tthree\r\n");
}

struct ExportFailure {
    const char* name;
    Lines words;
    std::function<void(FakePlatform&)> before;
    int exitCode;
    std::string complaint;
};

TEST_F(ExportCommand, LeavesNoFileBehindAFailure) {
    const std::string notWritten = std::string("; ") + kOut + " was not written\n";
    const ExportFailure kCases[] = {
        {"no place", {"export", kFirst}, nullptr, 64, "expected --to FILE"},
        {"two answers",
         {"export", kFirst, "--to", "-", "--json"},
         nullptr,
         64,
         "--json and --to - exclude each other"},
        {"no file", {"export", "/volume1/logs/none.DB", "--to", kOut}, nullptr, 66, "none.DB: No such file"},
        {"no database",
         {"export", kFirst, kSecond, "--to", kOut},
         [](FakePlatform& fake) { fake.database(kSecond)->opens = false; },
         65,
         "cannot be read as a log database" + notWritten},
        {"unreadable rows",
         {"export", kFirst, "--to", kOut, "--format", "csv"},
         [](FakePlatform& fake) { fake.failEveryCall("SyslogDBSelect"); },
         65,
         notWritten},
        {"no export",
         {"export", kFirst, "--to", kOut},
         [](FakePlatform& fake) { fake.failCall("mkstemp"); },
         74,
         "could not be exported"},
        {"no room",
         {"export", kFirst, "--to", kOut},
         [](FakePlatform& fake) {
             fake.space["/volume1/out"] = {4096, 1};
         },
         74,
         "too little space at /volume1/out"},
        {"full",
         {"export", kFirst, "--to", kOut, "--format", "csv"},
         [](FakePlatform&) { fakeMachine().outputIsFull = true; },
         74,
         "No space left on device" + notWritten},
        {"stopped",
         {"export", kFirst, "--to", kOut},
         [](FakePlatform&) { fakeMachine().stopAsked = true; },
         1,
         "stopped" + notWritten},
    };
    for (const ExportFailure& one : kCases) {
        SCOPED_TRACE(one.name);
        fakeMachine() = {};
        platform.calls.clear();
        platform.space.clear();
        if (one.before) one.before(platform);
        EXPECT_EQ(command.run(one.words), one.exitCode);
        EXPECT_NE(command.err.find(one.complaint), std::string::npos) << command.err;
        EXPECT_EQ(command.out, "");
        EXPECT_EQ(platform.filesBelow("/volume1/out"), Lines());
        platform.database(kSecond)->opens = true;
    }
}

}  // namespace

}  // namespace ombrel::test::cmd_export
