// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sysexits.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "receiver/store/host_folder.h"
#include "receiver/writer/import_command.h"
#include "tests/receiver/database_probe.h"
#include "tests/receiver/in_zone.h"
#include "tests/receiver/settings_file.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class ImportTest : public testing::Test {
protected:
    void SetUp() override {
        writeSettings(folder / "server.conf", {{"arch_dest", folder / "logs"}});
        options.settingsFile = folder / "server.conf";
        options.schemaFile = OMBREL_SCHEMA_FILE;
        options.files = {folder / "input.log"};
    }
    int import(const std::string& text) {
        writeText(options.files[0], text);
        return run();
    }
    int run() {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int code = importCommand(options);
        answer = testing::internal::GetCapturedStdout();
        said = testing::internal::GetCapturedStderr();
        return code;
    }
    [[nodiscard]] std::string shared() const { return sharedDatabasePath(folder / "logs"); }

    InZone utc{"UTC"};
    TempFolder folder;
    ImportOptions options;
    std::string said;
    std::string answer;
};

TEST_F(ImportTest, StoresEveryLineWithItsOwnTime) {
    options.year = 2004;
    ASSERT_EQ(import("<34>Dec 31 23:59:59 h1 su[7]: a\r\nJan  1 00:00:01 h2 su: b\n\n"
                     "1 2003-10-11T22:14:15Z h3 app - - - c\nno header"),
              EX_OK)
        << said;
    EXPECT_THAT(query(shared(),
                      "SELECT datetime(utcsec+utcoff,'unixepoch'),name,msg FROM logs JOIN hosts ON hosts.id=host "
                      "ORDER BY logs.id"),
                ElementsAre("2004-12-31 23:59:59|h1|a", "2005-01-01 00:00:01|h2|b", "2003-10-11 22:14:15|h3|c",
                            "2003-10-11 22:14:15|localhost|no header"));
    EXPECT_THAT(said, HasSubstr("4 messages imported"));
    EXPECT_EQ(rowCount(shared()), "4");
}

TEST_F(ImportTest, GuessesTheYearOfTheFirstLineFromTheLast) {
    writeText(options.files[0], "Nov 30 10:00:00 h a: x\nDec 31 10:00:00 h a: x\nJan  1 10:00:00 h a: x\n");
    struct timespec times[2] = {{1106000000, 0}, {1106000000, 0}};  // January 2005
    ASSERT_EQ(::utimensat(AT_FDCWD, options.files[0].c_str(), times, 0), 0);
    ASSERT_EQ(run(), EX_OK);
    EXPECT_THAT(query(shared(), "SELECT date(utcsec+utcoff,'unixepoch') FROM logs ORDER BY id"),
                ElementsAre("2004-11-30", "2004-12-31", "2005-01-01"));
}

TEST_F(ImportTest, StoresMoreThanOneTransaction) {
    std::string text;
    for (int i = 0; i < 25'000; ++i)
        text += "Jul 20 12:00:00 h app: seq=" + std::to_string(i) + "\n";
    ASSERT_EQ(import(text), EX_OK);
    EXPECT_EQ(rowCount(shared()), "25000");
    EXPECT_THAT(query(shared(), "SELECT count(DISTINCT msg) FROM logs"), ElementsAre("25000"));
    ASSERT_EQ(run(), EX_OK);
    EXPECT_EQ(rowCount(shared()), "50000") << "importing again is asked for, and done";
}

TEST_F(ImportTest, FilesByHostWhereTheSettingsSaySo) {
    writeSettings(options.settingsFile, {{"arch_dest", folder / "logs"}, {"arch_by_device", "1"}});
    options.host = "box";
    ASSERT_EQ(import("Jul 20 12:00:00 ../x app: a\nbare\n"), EX_OK);
    EXPECT_THAT(messages(hostDatabasePath(folder / "logs", "%2E.%2Fx")), ElementsAre("a"));
    EXPECT_THAT(messages(hostDatabasePath(folder / "logs", "box")), ElementsAre("bare"));
}

TEST_F(ImportTest, SurvivesAnythingInTheFile) {
    std::string junk;
    for (unsigned i = 0; i < 300'000; ++i)
        junk += static_cast<char>(i * 7919 >> 3);
    const std::string longLine(3U << 20, 'y');
    ASSERT_EQ(import(junk + "\n" + longLine + "\nlast\n"), EX_OK);
    EXPECT_THAT(said, HasSubstr("1 lines of more than 1 MiB were split"));
    EXPECT_THAT(query(shared(), "SELECT msg FROM logs ORDER BY id DESC LIMIT 1"), ElementsAre("last"));
    EXPECT_THAT(query(shared(), "SELECT sum(length(msg)) FROM logs WHERE msg LIKE 'yyyy%'"),
                ElementsAre(std::to_string(longLine.size())));
    EXPECT_THAT(query(shared(), "PRAGMA integrity_check"), ElementsAre("ok"));
}

TEST_F(ImportTest, TakesNoRoomForLinesWithoutText) {
    const std::string blank(2U << 20, '\n');  // 75 MiB if each were kept
    struct rusage before {};
    struct rusage after {};
    // The peak is that of the tests before, too, unless it is set back (proc(5)).
    std::ofstream("/proc/self/clear_refs") << 5;
    ::getrusage(RUSAGE_SELF, &before);
    ASSERT_EQ(import(blank + "last\n"), EX_OK);
    ::getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 32L << 10) << "KiB";
    EXPECT_EQ(rowCount(shared()), "1");
}

TEST_F(ImportTest, SaysWhatIsMissing) {
    options.files[0] = folder / "missing.log";
    EXPECT_EQ(run(), EX_NOINPUT);
    EXPECT_THAT(said, HasSubstr("missing.log: No such file"));
    options.files[0] = folder.path();
    EXPECT_EQ(run(), EX_NOINPUT);
    options.files[0] = folder / "server.conf";
    options.schemaFile = folder / "missing.sql";
    EXPECT_EQ(run(), EX_OSFILE);
    options.settingsFile = folder / "missing.conf";
    EXPECT_EQ(run(), EX_CONFIG);
}

TEST_F(ImportTest, StopsWhereItCannotStore) {
    writeText(folder / "logs", "in the way");
    EXPECT_EQ(import("Jul 20 12:00:00 h app: a\n"), EX_IOERR);
    EXPECT_THAT(said, HasSubstr("stopped after 0 messages"));
}

TEST_F(ImportTest, OneFileThatFailsDoesNotStopTheOthers) {
    options.files = {folder / "missing.log", folder / "a.log", folder / "b.log"};
    writeText(options.files[1], "Jul 20 12:00:00 h app: a\n");
    writeText(options.files[2], "Jul 20 12:00:00 h app: b\nJul 20 12:00:00 h app: c\n");
    EXPECT_EQ(run(), EX_NOINPUT);
    EXPECT_THAT(messages(shared()), ElementsAre("a", "b", "c"));
    EXPECT_EQ(answer, "");
    EXPECT_THAT(said, HasSubstr("missing.log: No such file"));
    EXPECT_THAT(said, HasSubstr(options.files[1] + ": 1 messages imported in "));
    EXPECT_THAT(said, HasSubstr(options.files[2] + ": 2 messages imported in "));
}

TEST_F(ImportTest, SaysWhatBecameOfEachFileInJson) {
    options.json = true;
    options.files.push_back(folder / "\x1b[2Jmissing.log");
    EXPECT_EQ(import("Jul 20 12:00:00 h app: a\n"), EX_NOINPUT);
    const auto line = [this](std::size_t file, const char* rest) {
        return "\\{\"file\":\"" + folder.path() + (file == 0 ? "/input.log" : "/.u001b.2Jmissing.log") + "\"," +
               rest;
    };
    EXPECT_THAT(
        answer,
        testing::MatchesRegex(
            line(0,
                 "\"ok\":true,\"rows\":1,\"split_lines\":0,\"duration_seconds\":[0-9]+\\.[0-9]+,\"error\":null}"
                 "\n") +
            line(1,
                 "\"ok\":false,\"rows\":0,\"split_lines\":0,\"duration_seconds\":0\\.000,\"error\":\"cannot "
                 "read .*: No such file or directory\"}\n")));
    EXPECT_THAT(said, Not(HasSubstr("imported")));
}

}  // namespace
}  // namespace ombrel
