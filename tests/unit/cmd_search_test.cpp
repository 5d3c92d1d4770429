// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel search` on the recording platform.
#include <ctime>

#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/settings_update_test.h"
#include "tools/ombrel/log_filter.h"
#include "tools/ombrel/time_words.h"

namespace ombrel::test::cmd_search {

namespace {

constexpr long long kNoon = 1'709'467'200;  // 2024-03-03 12:00 UTC

struct Message {
    long long time;
    std::string text;
    std::string host = "nas1";
    int severity = 6;
    std::string program = "sshd";
    std::string facility = "auth";
};

std::string idOf(std::map<unsigned long long, std::string>& table, const std::string& text) {
    for (const auto& [id, known] : table) {
        if (known == text) return std::to_string(id);
    }
    table[table.size() + 1] = text;
    return std::to_string(table.size());
}

std::string utc(long long seconds, const char* format) {
    const auto moment = static_cast<time_t>(seconds);
    struct tm parts {};
    char text[32];
    ::gmtime_r(&moment, &parts);
    return {text, std::strftime(text, sizeof text, format, &parts)};
}

FakeDatabase databaseOf(const std::vector<Message>& messages) {
    FakeDatabase database;
    for (const Message& message : messages) {
        _SYSLOG_LOG_DATA_tag row;
        row.rowId = std::to_string(database.rows.size() + 1);
        row.timestamp = std::to_string(message.time);
        row.receiveTime = std::to_string(message.time + 2);
        row.priority = static_cast<_SYSLOG_DB_PRIORITY_tag>(message.severity);
        row.hostId = idOf(database.keys[SYSLOG_EXTKEY_HOST], message.host);
        row.programId = idOf(database.keys[SYSLOG_EXTKEY_PROGRAM], message.program);
        row.facilityId = idOf(database.keys[SYSLOG_EXTKEY_FACILITY], message.facility);
        row.senderId = idOf(database.keys[SYSLOG_EXTKEY_SENDER], "192.0.2.7");
        row.processId = "4711";
        row.messageId = "LOGIN";
        row.date = utc(message.time, "%Y-%m-%d");
        row.time = utc(message.time, "%H:%M:%S");
        row.message = message.text;
        database.rows.push_back(row);
    }
    return database;
}

class SearchCommand : public PlatformTest {
protected:
    SearchCommand() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        platform.now = kNoon + 3600;
        platform.addFile(kServerConf, sampleText({{"arch_dest", kDest}, {"arch_by_device", "0"}}));
        platform.addFolder(kDest);
    }
    ~SearchCommand() override {
        ::unsetenv("TZ");
        ::tzset();
    }
    static std::string archive(const std::string& name) { return kDest + ("/" + name); }
    void add(const std::string& path, const std::vector<Message>& messages) {
        platform.addDatabase(path, databaseOf(messages));
    }
    int run(Lines words) {
        words.insert(words.begin(), "search");
        return command.run(words);
    }
    /// The messages that were found, between blanks.
    std::string found(const Lines& words) {
        (void)run(words);
        std::string messages;
        std::istringstream lines(command.out);
        for (std::string line; std::getline(lines, line);)
            messages += (messages.empty() ? "" : " ") + line.substr(line.rfind('\t') + 1);
        return messages;
    }

    CommandLineRun command;
    std::string& out = command.out;
    std::string& err = command.err;
};

TEST_F(SearchCommand, ShowsTheSevenColumnsOfTheTextExport) {
    add(kSharedDb, {{kNoon, "Accepted \x1b[31mkey\tfor \xff", "nas1", 3}});
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(err, "");
    EXPECT_EQ(out, "2024-03-03\t12:00:00\terr\tnas1\tauth\tsshd\tAccepted \\x1b[31mkey\\x09for \\xff\n");
}

TEST_F(SearchCommand, ShowsEveryFormat) {
    add(kSharedDb, {{kNoon, "said \"no\", twice\r\n\x1b[2J", "nas,1", 3}});
    EXPECT_EQ(run({"--format", "csv"}), 0);
    EXPECT_EQ(out,
              "time,received,severity,host,facility,program,process_id,message_id,sender,message\r\n"
              "2024-03-03T12:00:00+00:00,2024-03-03T12:00:02+00:00,err,\"nas,1\",auth,sshd,4711,LOGIN,192.0.2.7,"
              "\"said \"\"no\"\", twice\\x0d\\x0a\\x1b[2J\"\r\n");
    const std::string json =
        R"({"time":"2024-03-03T12:00:00+00:00","received":"2024-03-03T12:00:02+00:00","severity":"err",)"
        R"("host":"nas,1","facility":"auth","program":"sshd","process_id":"4711","message_id":"LOGIN",)"
        R"("sender":"192.0.2.7","message":"said \"no\", twice\u000d\u000a\u001b[2J"})"
        "\n";
    EXPECT_EQ(run({"--format", "json"}), 0);
    EXPECT_EQ(out, json);
    EXPECT_EQ(run({"--json"}), 0);
    EXPECT_EQ(out, json);
    EXPECT_EQ(run({"--format", "table"}), 0);
    EXPECT_EQ(
        out,
        "2024-03-03 12:00:00  nas,1            sshd          err      said \"no\", twice\\x0d\\x0a\\x1b[2J\n");
    EXPECT_EQ(run({"--format", "table", "--color", "always"}), 0);
    EXPECT_EQ(out,
              "\x1b[2m2024-03-03 12:00:00\x1b[0m  nas,1            sshd          \x1b[31merr      \x1b[0m\x1b[31m"
              "said \"no\", twice\\x0d\\x0a\\x1b[2J\x1b[0m\n");
}

TEST_F(SearchCommand, OfTheOldLayoutShowsWhatThereIs) {
    FakeDatabase old = databaseOf({{kNoon, "a"}});
    old.version = 1;
    old.rows[0].hostId = "nas1";
    old.rows[0].facilityId = old.rows[0].programId = old.rows[0].senderId = "";
    old.rows[0].priority = static_cast<_SYSLOG_DB_PRIORITY_tag>(-1);
    platform.addDatabase(archive("2024-03-03_2024-03-03.DB"), old);
    EXPECT_EQ(run({"--json"}), 0);
    EXPECT_EQ(out,
              R"({"time":"2024-03-03T12:00:00+00:00","received":null,"severity":null,"host":"nas1","facility":"",)"
              R"("program":"","process_id":"4711","message_id":"LOGIN","sender":"","message":"a"})"
              "\n");
    EXPECT_EQ(run({"--severity", "debug"}), 1) << "it has none";
}

TEST_F(SearchCommand, FindsWhatMeetsAllConditions) {
    add(kSharedDb, {{kNoon, "login-ok", "nas1", 6, "sshd", "auth"},
                    {kNoon + 1, "LOGIN-failed", "nas2", 4, "sshd", "auth"},
                    {kNoon + 2, "disk-failed", "nas1", 3, "kernel", "kern"},
                    {kNoon + 3, "disk-100%-full", "nas1", 0, "kernel", "kern"}});
    EXPECT_EQ(found({}), "disk-100%-full disk-failed LOGIN-failed login-ok");
    EXPECT_EQ(found({"login"}), "LOGIN-failed login-ok");
    EXPECT_EQ(found({"100%"}), "disk-100%-full");
    EXPECT_EQ(found({"--host", "nas1"}), "disk-100%-full disk-failed login-ok");
    EXPECT_EQ(found({"--host", "nas1", "failed"}), "disk-failed");
    EXPECT_EQ(found({"--program", "sshd"}), "LOGIN-failed login-ok");
    EXPECT_EQ(found({"--facility", "kern"}), "disk-100%-full disk-failed");
    EXPECT_EQ(found({"--severity", "Warning"}), "disk-100%-full disk-failed LOGIN-failed");
    EXPECT_EQ(found({"--severity", "0"}), "disk-100%-full");
    EXPECT_EQ(found({"--since", "2024-03-03T12:00:02Z"}), "disk-100%-full disk-failed");
    EXPECT_EQ(found({"--until", "2024-03-03 12:00:01"}), "LOGIN-failed login-ok");
    EXPECT_EQ(found({"--since", "59m"}), "");
    EXPECT_EQ(found({"--regex", "^disk-.*d$"}), "disk-failed");
    EXPECT_EQ(found({"--regex", "login-(ok|failed)"}), "login-ok") << "the case as written";
    EXPECT_EQ(found({"--regex", "(?i)login-(ok|failed)"}), "LOGIN-failed login-ok");
    EXPECT_EQ(found({"--regex", "f.*d", "disk"}), "disk-failed");
    EXPECT_EQ(found({"--limit", "2"}), "disk-100%-full disk-failed");
    EXPECT_EQ(found({"--", "-failed"}), "disk-failed LOGIN-failed");
}

TEST_F(SearchCommand, AsksTheDatabaseForWhatAPatternNeeds) {
    add(kSharedDb, {{kNoon, "a"}});
    LogFilter filter;
    FilterWords words;
    const auto needs = [&](const std::string& pattern) {
        words.regex = pattern;
        EXPECT_EQ(filter.read(words, 0), std::nullopt);
        std::string texts;
        for (const auto& condition : filter.conditions())
            texts += (texts.empty() ? "" : " ") + condition.text;
        return texts;
    };
    EXPECT_EQ(needs("disk [a-z]+ failed"), " failed disk ");
    EXPECT_EQ(needs("(?i)Failed"), "failed");
    EXPECT_EQ(needs("(?i)disk failed"), " failed") << "there is a long s, and a Kelvin sign";
    EXPECT_EQ(needs("foo|bar"), "") << "neither of them is in each match";
    EXPECT_EQ(needs("fo"), "") << "too short to tell much";
    EXPECT_EQ(needs("[0-9]+"), "");
    EXPECT_EQ(needs("x*"), "");
    EXPECT_EQ(needs("gr\xc3\xbc\xc3\x9f"
                    "e an alle"),
              "e an alle");
}

TEST_F(SearchCommand, PutsFilesOfTheSameDaysInOneOrder) {
    add(kSharedDb, {{kNoon + 10, "w1"}, {kNoon + 40, "w2"}});
    add(archive("2024-03-02_2024-03-03.DB"), {{kNoon - 90'000, "a1"}, {kNoon + 20, "a2"}});
    add(archive("2024-03-03_2024-03-03.DB"), {{kNoon, "b1"}, {kNoon + 30, "b2"}});
    add(archive("2024-03-01_2024-03-01.DB"), {{kNoon - 180'000, "c1"}});
    EXPECT_EQ(found({}), "w2 b2 a2 w1 b1 a1 c1");
    EXPECT_EQ(found({"--in", "live"}), "w2 w1");
    EXPECT_EQ(found({"--in", "archives"}), "b2 a2 b1 a1 c1");
    EXPECT_EQ(found({"--limit", "3"}), "w2 b2 a2");
}

TEST_F(SearchCommand, OpensOnlyArchivesOfTheDaysAskedFor) {
    add(archive("2024-03-01_2024-03-01.DB"), {{kNoon - 172'800, "a"}});
    add(archive("2024-03-02_2024-03-03.DB"), {{kNoon, "b"}});
    add(archive("2024-03-04_2024-03-05.DB"), {{kNoon + 86'400, "c"}});
    platform.calls.clear();
    EXPECT_EQ(found({"--since", "2024-03-02", "--until", "2024-03-03"}), "b");
    for (const std::string& line : platform.calls.linesOf({"SyslogDBSelect", "SyslogDBVersionGet"})) {
        EXPECT_THAT(line, ::testing::HasSubstr("2024-03-02_2024-03-03.DB"));
    }
    EXPECT_EQ(found({"--since", "2024-03-05 10:00"}), "") << "on that day, before that time";
}

TEST_F(SearchCommand, LooksAtNoRowOfAFileWithoutTheHost) {
    add(archive("2024-03-02_2024-03-03.DB"), {{kNoon, "b"}});
    platform.calls.clear();
    EXPECT_EQ(run({"--host", "other"}), 1);
    EXPECT_EQ(platform.calls.count("SyslogDBSelect"), 0);
}

TEST_F(SearchCommand, ReadsArchivesInZipFiles) {
    add("/scratch/1.DB", {{kNoon, "a"}});
    add("/scratch/2.DB", {{kNoon + 1, "b"}});
    platform.addFile(archive("2024-03-03_2024-03-03.ZIP"), "zip");
    platform.addFile(archive("2024-03-01_2024-03-01.ZIP"), "zip");
    fakeMachine().zipped[archive("2024-03-03_2024-03-03.ZIP")] = {"/scratch/1.DB", "/scratch/2.DB"};
    EXPECT_EQ(found({"--since", "2024-03-02"}), "a b");
    EXPECT_EQ(fakeMachine().unpacked, Lines(2, archive("2024-03-03_2024-03-03.ZIP")));
    EXPECT_EQ(err, "");
    EXPECT_EQ(run({}), 66);
    EXPECT_EQ(err, "ombrel: " + archive("2024-03-01_2024-03-01.ZIP") + ": damaged\n");
}

TEST_F(SearchCommand, FindsNothing) {
    EXPECT_EQ(run({"anything"}), 1);
    EXPECT_EQ(out + err, "");
    add(kSharedDb, {{kNoon, "a"}});
    EXPECT_EQ(run({"anything"}), 1);
    EXPECT_EQ(run({"anything", "--format", "csv"}), 1);
    EXPECT_EQ(out + err, "");
}

TEST_F(SearchCommand, EndsByASignal) {
    add(kSharedDb, {{kNoon, "a"}});
    fakeMachine().stopAsked = true;
    EXPECT_EQ(run({}), 130);
    EXPECT_EQ(out + err, "");
}

TEST_F(SearchCommand, GoesOnBehindWhatCannotBeRead) {
    add(kSharedDb, {{kNoon, "a"}});
    platform.addFile(archive("2024-03-03_2024-03-03.DB"), "no database");
    add(archive("2024-03-02_2024-03-02.DB"), {{kNoon - 86'400, "b"}});
    EXPECT_EQ(found({}), "a b");
    EXPECT_EQ(err, "ombrel: " + archive("2024-03-03_2024-03-03.DB") + ": it cannot be read\n");
    EXPECT_EQ(run({}), 66);
    EXPECT_EQ(run({"--limit", "1"}), 66);
}

TEST_F(SearchCommand, TellsOfEachCallThatFails) {
    add(kSharedDb, {{kNoon, "a"}});
    add(archive("2024-03-02_2024-03-02.DB"), {{kNoon - 86'400, "b"}});
    for (const char* call : {"SyslogDBVersionGet", "SyslogDBExtkeyMapGet", "SyslogDBSelect"}) {
        const int before = platform.calls.count(call);
        EXPECT_EQ(run({}), 0);
        const int calls = platform.calls.count(call) - before;
        EXPECT_GE(calls, 2) << call;
        for (int nth = 1; nth <= calls; ++nth) {
            platform.failCall(call, nth);
            EXPECT_EQ(run({}), 66) << call << " " << nth;
            EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
            EXPECT_THAT(err, ::testing::StartsWith("ombrel: /volume1/logs/"));
        }
    }
}

TEST_F(SearchCommand, TakesNoPartOfAFileThatIsGone) {
    add(kSharedDb, {{kNoon, "a"}});
    platform.removeFile(kSharedDb);
    EXPECT_EQ(run({}), 1);
    EXPECT_EQ(err, "");
}

TEST_F(SearchCommand, NeedsSettings) {
    platform.addFile(kServerConf, sampleText({}, {"arch_dest"}));
    EXPECT_EQ(run({}), 78);
    EXPECT_EQ(out, "");
}

TEST_F(SearchCommand, RefusesWrongWords) {
    const std::vector<std::pair<Lines, std::string>> table = {
        {{"--severity", "loud"},
         "--severity \"loud\": expected emerg, alert, crit, err, warning, notice, info, "
         "debug or 0 to 7"},
        {{"--since", "soon"}, std::string("--since \"soon\": expected ") + kTimeWords},
        {{"--until", "\x1b"}, std::string("--until \"\\x1b\": expected ") + kTimeWords},
        {{"--since", "today", "--until", "yesterday"}, "--until \"yesterday\": expected a time behind --since"},
        {{"--regex", "(a"}, "--regex \"(a\": missing ): (a"},
        {{"--regex", "(?:((a{100}){100}){100}){2}"}, "--regex \"(?:((a{100}){100}){100}){2}\": "},
    };
    for (const auto& [words, complaint] : table) {
        EXPECT_EQ(run(words), 64) << complaint;
        EXPECT_THAT(err, ::testing::StartsWith("ombrel: " + complaint));
        EXPECT_EQ(out, "");
    }
    EXPECT_EQ(run({"--limit", "0"}), 64);
    EXPECT_EQ(run({"--in", "somewhere"}), 64);
    EXPECT_EQ(run({"--format", "xml"}), 64);
    EXPECT_EQ(run({"one", "two"}), 64);
}

}  // namespace

}  // namespace ombrel::test::cmd_search
