// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel status` on the recording platform.
#include <filesystem>
#include <functional>
#include <sstream>

#include "linux/common/error_record.h"
#include "linux/vesksyslog/event_log.h"
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/fake_status_machine.h"
#include "tests/unit/in_utc.h"
#include "tests/unit/rule_file.h"
#include "tools/ombrel/status_counters.h"
#include "tools/ombrel/status_databases.h"
#include "tools/ombrel/status_gather.h"
#include "tools/ombrel/status_show.h"

namespace ombrel::test::cmd_status {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kEnabled = "/var/packages/Ombrel/target/service/conf/enable_services";
constexpr long long kStatusNow = 1709985600;  // 2024-03-09 12:00:00
constexpr const char* kUdpTable =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode ref "
    "pointer "
    "drops\n"
    "  100: 00000000:1414 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 77 2 0 12\n";
constexpr const char* kTcpTable =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   0: 00000000:1972 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 78 1 0\n";

std::string countedText(unsigned long long received, unsigned long long dropped) {
    return "SourceName;SourceId;SourceInstance;State;Type;Number\ndst.http;d_udp#0;http,http://x;a;dropped;" +
           std::to_string(dropped) +
           "\ndst.http;d_udp#0;http,http://x;a;processed;9\ncenter;;received;a;processed;" +
           std::to_string(received) + "\n.\n";
}

/// A database with one row at each of these ages, in seconds, oldest first.
FakeDatabase holding(const std::vector<long long>& ages, long long rows = 4000) {
    FakeDatabase database = march(rows);
    database.start = kStatusNow - 3600;
    for (const long long age : ages) {
        _SYSLOG_LOG_DATA_tag row;
        row.rowId = std::to_string(database.rows.size() + 1);
        row.receiveTime = std::to_string(kStatusNow - age);
        database.rows.push_back(row);
    }
    return database;
}

class StatusCommand : public PlatformTest {
protected:
    StatusCommand() {
        machine = {};
        platform.now = kStatusNow;
        platform.error = {0, "", 0};
        platform.addFile(kServerConf, sampleText({{"server_ssl", "0"},
                                                  {"arch_by_device", "0"},
                                                  {"arch_size", "0"},
                                                  {"arch_last_time", "1709900000"}}));
        platform.addFile(kEnabled, "pkg-Ombrel-bsd=\"yes\"\npkg-Ombrel-ietf=\"yes\"\n");
        platform.addFile(kRules, ruleSection({"lamp", "RAW", "tcp", 6514, false, true}) +
                                     ruleSection({"door", "BSD", "udp", 2514, false, false}));
        platform.jobs = {{"pkg-Ombrel-syslog", 1}, {"pkg-Ombrel-bsd", 1}, {kRuleJob, 1}, {"syslog-notify", 1}};
        platform.addDatabase(kSharedDb, holding({90, 61, 60, 30, 1}));
        platform.addFile(kDest + std::string("/2024-01-01_2024-02-03.ZIP"), std::string(300'000, 'x'));
        platform.addFile(kDest + std::string("/2024-02-03_2024-02-29.DB"), std::string(200'000, 'x'));
        platform.addFile(
            kEventFile, R"({"time":"2024-03-08T10:00:00Z","event":"archive_failed","text":"/volume1/logs/b.DB"})"
                        "\n"
                        R"({"time":"2024-03-08T10:30:00Z","event":"archive_finished","text":"/volume1/logs/b.DB"})"
                        "\n");
        machine.volume = {12'000'000'000, 48'000'000'000};
        machine.counters = {{"bsd", countedText(1234567, 3)}, {"custrule", countedText(5, 0)}};
        machine.socketTables = {{"udp", kUdpTable}, {"tcp", kTcpTable}};
    }
    std::string screen(int columns = 80, int lines = 24) const {
        return statusScreen(StatusWatch().look(), {true, false, columns, lines});
    }

    InUtc zone;
    FakeStatusMachine& machine = fakeStatusMachine();
    CommandLineRun line;
};

TEST_F(StatusCommand, FitsASmallTerminal) {
    EXPECT_EQ(screen(), R"(ombrel status  2024-03-09 12:00:00  3 messages in the last minute

RECEIVER      STATE    PORT           MESSAGES  LOST
RFC 3164      running  5140/udp      1,234,567  15
RFC 5424      down     6514/tcp+TLS          -  -
this machine  off      -                     -  -
all rules     running  -                     5  0
  lamp        running  6514/tcp              5  0
  door        off      2514/udp              -  -

DATABASE   ROWS    SIZE  SINCE       LAST MIN  ARCHIVING
_ARCH     4,000  0.0 MB  2024-03-03         3  count 80 %, age in 23 h

Jobs up     pkg-Ombrel-syslog pkg-Ombrel-bsd pkg-Ombrel-custrule syslog-notify
Jobs down   pkg-Ombrel-ietf
Jobs off    pkg-Ombrel-localarchive pkg-Ombrel-schedule
Archives    2 files, 0.5 MB, 2024-01-01 to 2024-02-29 in /volume1/logs
Volume      12.0 GB of 48.0 GB free (25 %)
Archived    2024-03-08 12:13:20

LAST EVENTS
2024-03-08 10:00:00  archive_failed    /volume1/logs/b.DB
2024-03-08 10:30:00  archive_finished  /volume1/logs/b.DB)");
}

TEST_F(StatusCommand, ShowsMoreOnALargeTerminal) {
    EXPECT_EQ(screen(120, 40), R"(ombrel status  2024-03-09 12:00:00  3 messages in the last minute

RECEIVER      STATE    PORT           MESSAGES  LOST
RFC 3164      running  5140/udp      1,234,567  15
RFC 5424      down     6514/tcp+TLS          -  -
this machine  off      -                     -  -
all rules     running  -                     5  0
  lamp        running  6514/tcp              5  0
  door        off      2514/udp              -  -

DATABASE   ROWS    SIZE  SINCE       LAST DAY    LAST MIN  ARCHIVING
_ARCH     4,000  0.0 MB  2024-03-03  2024-03-09         3  count 80 %, age in 23 h

Jobs up     pkg-Ombrel-syslog pkg-Ombrel-bsd pkg-Ombrel-custrule syslog-notify
Jobs down   pkg-Ombrel-ietf
Jobs off    pkg-Ombrel-localarchive pkg-Ombrel-schedule
Archives    2 files, 0.5 MB, 2024-01-01 to 2024-02-29 in /volume1/logs
Volume      12.0 GB of 48.0 GB free (25 %)
Archived    2024-03-08 12:13:20

LAST EVENTS
2024-03-08 10:00:00  archive_failed    /volume1/logs/b.DB
2024-03-08 10:30:00  archive_finished  /volume1/logs/b.DB)");
}

TEST_F(StatusCommand, GivesLinesWhereNobodyLooks) {
    EXPECT_EQ(line.run({"status"}), 0);
    EXPECT_EQ(line.err, "");
    EXPECT_EQ(line.out, R"(time	2024-03-09 12:00:00
receiver	RFC 3164	running	5140	udp	plain	1234567	-	15
receiver	RFC 5424	down	6514	tcp	tls	-	-	-
receiver	this machine	off	-	-	-	-	-	-
receiver	all rules	running	-	-	-	5	-	0
rule	lamp	running	6514	tcp	plain	5	-	0
rule	door	off	2514	udp	plain	-	-	-
job	pkg-Ombrel-syslog	running
job	pkg-Ombrel-bsd	running
job	pkg-Ombrel-ietf	down
job	pkg-Ombrel-localarchive	off
job	pkg-Ombrel-custrule	running
job	pkg-Ombrel-schedule	off
job	syslog-notify	running
database	_ARCH	/volume1/logs/VESKSYSLOGDB__ARCH.DB	4000	19	2024-03-03	2024-03-09	3	count 80 %, age in 23 h
archives	/volume1/logs	2	500000	2024-01-01	2024-02-29
volume	12000000000	48000000000
last-archived	2024-03-08 12:13:20
event	2024-03-08 10:00:00	archive_failed	/volume1/logs/b.DB
event	2024-03-08 10:30:00	archive_finished	/volume1/logs/b.DB
)");
}

TEST_F(StatusCommand, GivesOneObject) {
    EXPECT_EQ(line.run({"status", "--json"}), 0);
    EXPECT_EQ(
        line.out,
        R"({"time":"2024-03-09T12:00:00+00:00","receivers":[)"
        R"({"kind":"rfc3164","name":null,"wanted":true,"running":true,"port":5140,"transport":"udp","tls":false,"format":null,"messages":1234567,"messages_per_second":null,"lost_datagrams":12,"lost_messages":3},)"
        R"({"kind":"rfc5424","name":null,"wanted":true,"running":false,"port":6514,"transport":"tcp","tls":true,"format":null,"messages":null,"messages_per_second":null,"lost_datagrams":null,"lost_messages":null},)"
        R"({"kind":"local","name":null,"wanted":false,"running":false,"port":null,"transport":null,"tls":null,"format":null,"messages":null,"messages_per_second":null,"lost_datagrams":null,"lost_messages":null},)"
        R"({"kind":"rules","name":null,"wanted":true,"running":true,"port":null,"transport":null,"tls":null,"format":null,"messages":5,"messages_per_second":null,"lost_datagrams":null,"lost_messages":0},)"
        R"({"kind":"rule","name":"lamp","wanted":true,"running":true,"port":6514,"transport":"tcp","tls":false,"format":"RAW","messages":5,"messages_per_second":null,"lost_datagrams":null,"lost_messages":0},)"
        R"({"kind":"rule","name":"door","wanted":false,"running":false,"port":2514,"transport":"udp","tls":false,"format":"BSD","messages":null,"messages_per_second":null,"lost_datagrams":null,"lost_messages":null}],)"
        R"("jobs":[{"name":"pkg-Ombrel-syslog","wanted":true,"running":true},{"name":"pkg-Ombrel-bsd","wanted":true,"running":true},)"
        R"({"name":"pkg-Ombrel-ietf","wanted":true,"running":false},{"name":"pkg-Ombrel-localarchive","wanted":false,"running":false},)"
        R"({"name":"pkg-Ombrel-custrule","wanted":true,"running":true},{"name":"pkg-Ombrel-schedule","wanted":false,"running":false},{"name":"syslog-notify","wanted":false,"running":true}],)"
        R"("databases":[{"path":"/volume1/logs/VESKSYSLOGDB__ARCH.DB","device":"_ARCH","rows":4000,"size_bytes":19,)"
        R"("first_day":"2024-03-03","last_day":"2024-03-09","messages_last_minute":3,"messages_last_minute_is_more":false,)"
        R"("due":false,"rule":null,"rules":[{"rule":"count","limit_rows":5000,"reached_rows":4000},)"
        R"({"rule":"age","limit_seconds":86400,"reached_seconds":3600}]}],)"
        R"("messages_last_minute":3,"messages_last_minute_is_more":false,)"
        R"("archives":{"folder":"/volume1/logs","count":2,"size_bytes":500000,"oldest_day":"2024-01-01","newest_day":"2024-02-29"},)"
        R"("volume":{"free_bytes":12000000000,"total_bytes":48000000000},"last_archived":"2024-03-08T12:13:20+00:00",)"
        R"("events":[{"time":"2024-03-08T10:00:00+00:00","event":"archive_failed","text":"/volume1/logs/b.DB","failure":true},)"
        R"({"time":"2024-03-08T10:30:00+00:00","event":"archive_finished","text":"/volume1/logs/b.DB","failure":false}],"notes":[]})"
        "\n");
}

TEST_F(StatusCommand, IsCutAtTheEdgeOfANarrowTerminal) {
    for (const bool hasColours : {false, true}) {
        std::string text = statusScreen(StatusWatch().look(), {true, hasColours, 30, 24});
        for (std::size_t at; (at = text.find('\x1b')) != std::string::npos;)
            text.erase(at, text.find('m', at) - at + 1);
        std::istringstream lines(text);
        for (std::string one; std::getline(lines, one);)
            EXPECT_LE(one.size(), 30U) << one;
        EXPECT_THAT(text, HasSubstr("\nRFC 3164      running  5140/ud\n"));
    }
}

TEST_F(StatusCommand, PaintsWhatNeedsAPersonRed) {
    const std::string out = runOnTerminal("status", 80, 40, true).out;
    EXPECT_THAT(out, HasSubstr("\x1b[31mdown\x1b[0m"));
    EXPECT_THAT(out, HasSubstr("\x1b[32mrunning\x1b[0m"));
    EXPECT_THAT(out, HasSubstr("\x1b[31mpkg-Ombrel-ietf\x1b[0m"));
    EXPECT_THAT(out, HasSubstr("\x1b[31marchive_failed\x1b[0m"));
    EXPECT_THAT(out, HasSubstr("\x1b[31m15\x1b[0m"));
}

TEST_F(StatusCommand, NeverHasMoreLinesThanTheTerminal) {
    std::string rules;
    for (int i = 0; i < 40; ++i)
        rules += ruleSection({"rule" + std::to_string(i), "RAW", "tcp", 7000 + i, false, i % 2 == 0});
    platform.addFile(kRules, rules);
    for (int i = 0; i < 20; ++i)
        platform.addDatabase(hostDb("host" + std::to_string(i)), holding({1}));
    for (int lines = 1; lines < 60; lines += lines < 30 ? 1 : 9) {
        const std::string text = screen(80, lines);
        EXPECT_LT(std::count(text.begin(), text.end(), '\n'), lines);
    }
    EXPECT_THAT(screen(80, 24), HasSubstr("more\n"));
}

TEST_F(StatusCommand, KnowsTheLastArchivingFromTheSettingsOrTheEvents) {
    const auto last = [] { return StatusWatch().look().lastArchived; };
    EXPECT_EQ(last(), 1709900000) << "the last run of the schedule";
    platform.addFile(kServerConf, sampleText({{"server_ssl", "0"}, {"arch_last_time", "0"}}));
    EXPECT_EQ(last(), 1709893800) << "by hand: 2024-03-08 10:30:00";
    platform.removeFile(kEventFile);
    EXPECT_EQ(last(), 0);
    EXPECT_THAT(screen(80, 40), HasSubstr("\nArchived    never"));
}

struct StatusFailure {
    std::string name;
    std::function<void(FakePlatform&, FakeStatusMachine&)> happen;
    std::string screen;  ///< what is in it then
    std::string note;
    int exitCode = 0;
};
class StatusWithout : public StatusCommand, public ::testing::WithParamInterface<StatusFailure> {};

TEST_P(StatusWithout, ShowsTheRestAndSaysWhy) {
    GetParam().happen(platform, machine);
    const OnTerminal shown = runOnTerminal("status", 120, 40);
    EXPECT_EQ(shown.exitCode, GetParam().exitCode);
    EXPECT_THAT(shown.out, HasSubstr(GetParam().screen));
    EXPECT_THAT(shown.out, HasSubstr(GetParam().note + "\n"));
    EXPECT_EQ(line.run({"status"}), GetParam().exitCode);
    EXPECT_THAT(line.out, HasSubstr("note\t" + GetParam().note));
    EXPECT_EQ(line.err, GetParam().exitCode != 0 ? "ombrel: " + GetParam().note + "\n" : "");
    EXPECT_EQ(line.run({"status", "--json"}), GetParam().exitCode);
    EXPECT_EQ(std::count(line.out.begin(), line.out.end(), '\n'), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Failures, StatusWithout,
    ::testing::Values(
        StatusFailure{
            "TheRightToSeeJobs",
            [](FakePlatform& platform, FakeStatusMachine& machine) {
                platform.calls.onFailure = [&platform] { platform.error.code = kErrorNotFound; };
                platform.failEveryCall("VLIBServicectlIsJobRunning");
                machine.hidden = {"/run-folder"};
            },
            "RFC 3164      ?      5140/udp",
            "/run-folder may not be read, so the jobs and what they count are not known; root can read it"},
        StatusFailure{
            "AServiceManager",
            [](FakePlatform& platform, FakeStatusMachine&) {
                platform.calls.onFailure = [&platform] { platform.error.code = fromErrno(ECONNREFUSED); };
                platform.failEveryCall("VLIBServicectlIsJobRunning");
            },
            "Jobs ?      pkg-Ombrel-syslog", "not all jobs are known to the service manager (Connection refused)"},
        StatusFailure{"Counters", [](FakePlatform&, FakeStatusMachine& machine) { machine.counters.erase("bsd"); },
                      "RFC 3164      running  5140/udp             ?",
                      "receiver RFC 3164 does not say what it has counted"},
        StatusFailure{
            "Rules",
            [](FakePlatform& platform, FakeStatusMachine&) { platform.failEveryCall("VLIBCFileEnumSection"); },
            "all rules", std::string(kRules) + " cannot be read"},
        StatusFailure{"ReadableDatabase",
                      [](FakePlatform& platform, FakeStatusMachine&) { platform.failEveryCall("DBCon"); },
                      "? messages in the last minute", kSharedDb + " cannot be read as a log database"},
        StatusFailure{"ReadableRows",
                      [](FakePlatform& platform, FakeStatusMachine&) { platform.failEveryCall("SyslogDBSelect"); },
                      "? messages in the last minute", "the newest rows of " + kSharedDb + " cannot be read"},
        StatusFailure{"TheRightToReadADatabase",
                      [](FakePlatform&, FakeStatusMachine& machine) { machine.hidden = {kSharedDb}; },
                      "? messages in the last minute", kSharedDb + " may not be read; root can read it"},
        StatusFailure{
            "TheRightToReadTheArchiveFolder",
            [](FakePlatform&, FakeStatusMachine& machine) { machine.hidden = {kDest}; }, "Archives    ?",
            std::string(kDest) + " may not be read, so databases and archives are not known; root can read it"},
        StatusFailure{"Volume", [](FakePlatform&, FakeStatusMachine& machine) { machine.volume.reset(); },
                      "Volume      ?", "the free space of /volume1/logs is not known: Input/output error"},
        StatusFailure{"Settings",
                      [](FakePlatform& platform, FakeStatusMachine&) {
                          platform.addFile(kServerConf, sampleText({}, {"arch_time"}));
                      },
                      "Archives    ?", std::string(kServerConf) + " cannot be read or lacks a required key", 78}),
    CaseName());

TEST_F(StatusCommand, WithoutEventsSaysWhichRightIsMissing) {
    platform.failEveryCall("open", EACCES);
    const std::string note = platform.real(kEventFile) + " may not be read; root can read it\n";
    EXPECT_EQ(line.run({"status"}), 0);
    EXPECT_THAT(line.out, HasSubstr("note\t" + note));
    EXPECT_THAT(line.out, Not(HasSubstr("event\t")));
}

TEST_F(StatusCommand, ShowsWhatStrangersNamedInASafeWay) {
    platform.addFile(kRules, ruleSection({"a\x1b[2Jb", "RAW", "tcp", 6514, false, true}));
    platform.addDatabase(hostDb("x\x1b[31m"), holding({1}));
    platform.addFile(kEventFile, R"({"time":"2024-03-08T10:00:00Z","event":"e\u001b[2J","text":"t\u001b[2J\n"})"
                                 "\n");
    const std::string shown = screen(120, 40);
    EXPECT_EQ(shown.find('\x1b'), std::string::npos) << shown;
    EXPECT_THAT(shown, HasSubstr("a\\x1b[2Jb"));
    for (const char* option : {"--color=never", "--json"}) {
        EXPECT_EQ(line.run({"status", option}), 0);
        EXPECT_EQ(line.out.find('\x1b'), std::string::npos) << line.out;
    }
}

TEST_F(StatusCommand, TellsThatARuleIsNotServed) {
    machine.socketTables["tcp"] = "  sl  local_address\n";
    EXPECT_THAT(screen(), HasSubstr("  lamp        down"));
    machine.socketTables["tcp"] = "";
    EXPECT_THAT(screen(), HasSubstr("  lamp        running")) << "the kernel does not say";
}

TEST_F(StatusCommand, TellsTheLossesOfASharedPortOnlyWhereItKnowsWhose) {
    platform.addFile(kServerConf, sampleText({{"server_ssl", "0"},
                                              {"server_ietf_ssl", "0"},
                                              {"server_ietf_port", "5140"},
                                              {"server_ietf_trans", "udp"}}));
    platform.jobs["pkg-Ombrel-ietf"] = 1;
    std::string second = kUdpTable;
    second.replace(second.find(" 77 2 0 12"), 10, " 88 2 0 30");
    machine.socketTables["udp6"] = second;
    const auto lost = [] {
        const StatusReport report = StatusWatch().look();
        return std::pair(report.receivers[0].lostDatagrams, report.receivers[1].lostDatagrams);
    };
    EXPECT_EQ(lost(), std::pair(std::optional<unsigned long long>(), std::optional<unsigned long long>()));
    machine.sockets = {{"bsd", {77}}, {"ietf", {88}}};
    EXPECT_EQ(lost(), std::pair(std::optional(12ULL), std::optional(30ULL)));
}

TEST_F(StatusCommand, CountsMessagesASecondFromTwoLooks) {
    StatusWatch watch;
    EXPECT_EQ(watch.look().receivers[0].perSecond, std::nullopt);
    platform.now += 2;
    machine.counters["bsd"] = countedText(1234567 + 25, 3);
    EXPECT_EQ(watch.look().receivers[0].perSecond, 13U);
    platform.now += 2;
    machine.counters["bsd"] = countedText(10, 0);
    EXPECT_EQ(watch.look().receivers[0].perSecond, std::nullopt) << "it was started anew";
}

TEST_F(StatusCommand, DoesNotOpenWhatHasNotChanged) {
    StatusWatch watch;
    (void)watch.look();
    std::filesystem::last_write_time(
        platform.real(kSharedDb), std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 3000));
    std::filesystem::last_write_time(
        platform.real(kRules), std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 3000));
    (void)watch.look();
    platform.calls.clear();
    platform.now += 31;
    const StatusReport report = watch.look();
    EXPECT_EQ(platform.calls.count("DBCon"), 0);
    EXPECT_EQ(platform.calls.count("VLIBCFileEnumSection"), 0);
    EXPECT_EQ(report.databases[0].lastMinute, 1U) << "the others are older by now";
    EXPECT_EQ(report.databases[0].rows, 4000);
}

TEST_F(StatusCommand, TakesADatabaseThatIsJustBegunForAnEmptyOne) {
    platform.addFile(kSharedDb);
    EXPECT_EQ(lastMinuteOf(StatusWatch().look())->messages, 0U);
    EXPECT_THAT(screen(), HasSubstr("empty"));
    platform.addDatabase(kSharedDb, march(0));
    EXPECT_EQ(lastMinuteOf(StatusWatch().look())->messages, 0U);
    EXPECT_EQ(StatusWatch().look().notes, Lines());
}

TEST_F(StatusCommand, RefusesWrongWords) {
    for (const auto& [words, complaint] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"status", "--every", "3"}, "--every belongs to --watch"},
             {{"status", "--watch"}, "--watch needs a terminal, or --json"},
             {{"status", "--watch", "--every", "0"}, "--every \"0\": expected a number from 1 to 3600"}}) {
        EXPECT_EQ(line.run(words), 64);
        EXPECT_THAT(line.err, HasSubstr(complaint));
        EXPECT_EQ(line.out, "");
    }
}

TEST_F(StatusCommand, GivesAnObjectAtEachLookWhileItWatches) {
    machine.looks = 3;
    machine.betweenLooks = [this] { platform.now += 2; };
    EXPECT_EQ(line.run({"status", "--watch", "--json"}), 0);
    EXPECT_EQ(std::count(line.out.begin(), line.out.end(), '\n'), 3);
    EXPECT_THAT(line.out, HasSubstr("\n{\"time\":\"2024-03-09T12:00:04+00:00\","));
    machine.waitError = EMFILE;
    EXPECT_EQ(line.run({"status", "--watch", "--json"}), 1);
    EXPECT_EQ(line.err, "ombrel: cannot wait for time, keys and signals: Too many open files\n");
}

TEST(MinuteCounted, SaysThatThereAreMoreUntilTheyAreOlderThanAMinute) {
    FakePlatform platform;
    platform.addDatabase(kSharedDb, holding({50, 40, 30, 20, 10}));
    MinuteCount count(3);
    ASSERT_TRUE(count.look(kSharedDb, kStatusNow));
    EXPECT_EQ(count.messages(), 3U);
    EXPECT_TRUE(count.isMoreThan());
    count.pass(kStatusNow + 61);
    EXPECT_EQ(count.messages(), 0U);
    EXPECT_FALSE(count.isMoreThan());
}

TEST(MinuteCounted, AddsWhatHasComeSinceAndOnlyThat) {
    FakePlatform platform;
    FakeDatabase& database = platform.addDatabase(kSharedDb, holding({30, 20}));
    MinuteCount count;
    ASSERT_TRUE(count.look(kSharedDb, kStatusNow));
    EXPECT_EQ(count.messages(), 2U);
    ASSERT_TRUE(count.look(kSharedDb, kStatusNow));
    EXPECT_EQ(count.messages(), 2U);
    database.rows = holding({30, 20, 5}).rows;
    ASSERT_TRUE(count.look(kSharedDb, kStatusNow));
    EXPECT_EQ(count.messages(), 3U);
    database.rows = holding({4}).rows;  // archived, and begun anew
    ASSERT_TRUE(count.look(kSharedDb, kStatusNow));
    EXPECT_EQ(count.messages(), 4U);
    database.rows = holding({9, 8, 7}).rows;  // likewise, and further on than the one before
    ASSERT_TRUE(count.look(kSharedDb, kStatusNow));
    EXPECT_EQ(count.messages(), 7U);
}

TEST(MinuteCounted, IsNotMisledByRowsThatWereEnteredLate) {
    FakePlatform platform;
    platform.addDatabase(kSharedDb, holding({30, 20, 500, 400}));
    MinuteCount count;
    ASSERT_TRUE(count.look(kSharedDb, kStatusNow));
    EXPECT_EQ(count.messages(), 2U);
}

TEST(MinuteCounted, CostsNoMoreWhenMoreIsStored) {
    FakePlatform platform;
    platform.addDatabase(kSharedDb, holding(std::vector<long long>(5000, 3600)));
    MinuteCount count;
    ASSERT_TRUE(count.look(kSharedDb, kStatusNow));
    EXPECT_EQ(platform.calls.count("SyslogDBSelect"), 1);
}

struct StatusDueCase {
    std::string name;
    std::set<std::string> rules;
    long long rows;
    long long age;
    unsigned long long bytes;
    std::string expected;
};
class DueDatabase : public ::testing::TestWithParam<StatusDueCase> {};

TEST_P(DueDatabase, IsToldInWords) {
    const FakePlatform platform;
    LogArchiver archiver;
    archiver.ArchCount = GetParam().rules.contains("count") ? 1000 : 0;
    archiver.ArchInterval = GetParam().rules.contains("age") ? 3 * 86400 : 0;
    archiver.ArchSize = GetParam().rules.contains("size") ? 64 : 0;
    DatabaseStatus database;
    database.rows = GetParam().rows;
    database.bytes = GetParam().bytes;
    addDue(archiver, kStatusNow - GetParam().age, kStatusNow, database);
    EXPECT_EQ(dueText(database), GetParam().expected);
}

const std::set<std::string> kAllRules = {"count", "age", "size"};
constexpr unsigned long long kMib = 1048576;
INSTANTIATE_TEST_SUITE_P(
    Rules, DueDatabase,
    ::testing::Values(StatusDueCase{"Empty", kAllRules, 0, 0, 0, "empty"},
                      StatusDueCase{"NoRule", {}, 5000, 0, 0, "by no rule"},
                      StatusDueCase{"Count", kAllRules, 1001, 0, 0, "due now by count"},
                      StatusDueCase{"AtTheCount", {"count"}, 1000, 0, 0, "count 100 %"},
                      StatusDueCase{"Age", kAllRules, 1, 3 * 86400 + 1, 0, "due now by age"},
                      StatusDueCase{"AtTheAge", {"age"}, 1, 3 * 86400, 0, "age in 1 s"},
                      StatusDueCase{"Size", kAllRules, 1, 0, 65 * kMib, "due now by size"},
                      StatusDueCase{"AtTheSize", {"size"}, 1, 0, 65 * kMib - 1, "size 100 %"},
                      StatusDueCase{"Days", {"age"}, 1, 86400 - 3 * 3600, 0, "age in 2 d 3 h"},
                      StatusDueCase{"Hours", {"age"}, 1, 3 * 86400 - 7500, 0, "age in 2 h 5 min"},
                      StatusDueCase{"Minutes", {"age"}, 1, 3 * 86400 - 130, 0, "age in 2 min"},
                      StatusDueCase{"TheNextOneFirst", kAllRules, 800, 86400, 32 * kMib,
                                    "count 80 %, size 50 %, age in 2 d"},
                      StatusDueCase{"FromTheFuture", {"age"}, 1, -3600, 0, "age in 3 d 1 h"}),
    CaseName());

struct CounterCase {
    std::string name;
    std::string stats;
    std::optional<std::pair<unsigned long long, unsigned long long>> expected;
};
class ReceiverStats : public ::testing::TestWithParam<CounterCase> {};

TEST_P(ReceiverStats, AreReadFromWhatSyslogNgSays) {
    std::optional<std::pair<unsigned long long, unsigned long long>> found;
    if (const auto counters = readCounters(GetParam().stats)) found = {counters->received, counters->dropped};
    EXPECT_EQ(found, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, ReceiverStats,
    ::testing::Values(CounterCase{"Usual", countedText(7, 2), {{7, 2}}},
                      CounterCase{"SeveralDestinations", countedText(7, 2) + countedText(8, 3), {{8, 5}}},
                      CounterCase{"Empty", "", {}}, CounterCase{"Dot", ".\n", {}},
                      CounterCase{"NoNumber", "center;;received;a;processed;x\n", {}},
                      CounterCase{"Negative", "center;;received;a;processed;-1\n", {}},
                      CounterCase{"CutOff", "center;;received;a;processed", {}},
                      CounterCase{"Queued", "center;;queued;a;processed;5\n", {}},
                      CounterCase{
                          "DroppedElsewhere",
                          "center;;received;a;processed;5\nsrc.x;s;i;a;dropped;4\n;dropped;3\ndst.;dropped\n",
                          {{5, 0}}}),
    CaseName());

}  // namespace

}  // namespace ombrel::test::cmd_status
