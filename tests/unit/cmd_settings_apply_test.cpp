// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel settings` with files and dry runs: what is told is what is done afterwards, step by step.
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/rule_file.h"
#include "tests/unit/settings_update_test.h"

namespace ombrel::test::cmd_settings_apply {

namespace {

using ::testing::HasSubstr;

constexpr const char* kSettingsInput = "/root/settings.txt";

class SettingsApply : public SettingsUpdateTest {
protected:
    SettingsApply() {
        platform.addFile(kServerConf, sampleText({{"server_ssl", "0"}, {"arch_by_device", "0"}}));
        platform.addFolder(kDest);
    }
    int run(const Lines& words) { return command.runBelow("settings", words); }
    /// Steps as the platform has seen them, in the words of a dry run.
    Lines stepsTaken();

    CommandLineRun command;
    std::string& out = command.out;
    std::string& err = command.err;
};

/// The first argument of a recorded call, without its quotes.
std::string firstArgument(const std::string& line) {
    const auto begin = line.find('"') + 1;
    return line.substr(begin, line.find('"', begin) - begin);
}

Lines SettingsApply::stepsTaken() {
    const std::map<std::string, std::string> verbs = {
        {"VLIBServicectlJobStop", "stop"},    {"VLIBServicectlJobStart", "start"},
        {"VLIBServicectlRestart", "restart"}, {"VLIBServiceStop", "stop"},
        {"VLIBServiceStart", "start"},        {"VESKFileCopy", "archive"}};
    Lines steps;
    for (const std::string& line : platform.calls.lines()) {
        const std::string name = line.substr(0, line.find('('));
        if (const auto verb = verbs.find(name); verb != verbs.end()) {
            steps.push_back("would " + verb->second + " " + firstArgument(line));
        } else if (name == "VLIBServiceConfSectionSet" || name == "VLIBServiceConfSectionRemove") {
            const bool isIetf = line.find("syslog_server_ietf") != std::string::npos;
            steps.push_back((name.ends_with("Set") ? "would declare " : "would withdraw ") +
                            std::string(isIetf ? "syslog_server_ietf" : "syslog_server"));
        } else if (name == "VESKFwRuleHup") {
            steps.emplace_back("would reload firewall");
        } else if (name == "VLIBCFileSetKeys" && firstArgument(line) == kServerConf) {
            steps.push_back("would write " + std::string(kServerConf));
        }
    }
    return steps;
}

/// The steps of an answer, without the rows behind an archive.
Lines stepsTold(const std::string& text) {
    Lines steps;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        const std::string line = text.substr(begin, end - begin);
        if (line.starts_with("would ") && line.find(" port ") == std::string::npos)
            steps.push_back(line.substr(0, line.find(" (")));
        begin = end + 1;
    }
    return steps;
}

struct PlannedRun {
    std::string name;
    Lines words;
    Lines told;  ///< beside the steps
};

class SettingsDryRun : public SettingsApply, public ::testing::WithParamInterface<PlannedRun> {};

TEST_P(SettingsDryRun, TellsWhatIsDoneThenInTheSameOrder) {
    platform.jobs[kRuleJob] = 1;
    platform.addDatabase(kLocalDb, march(3));
    platform.addDatabase(kSharedDb, march(0));
    Lines words = {"set", "--dry-run"};
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    const auto before = platform.filesBelow("/");
    EXPECT_EQ(run(words), 0) << err;
    const std::string told = out;
    for (const std::string& line : GetParam().told)
        EXPECT_THAT(told, HasSubstr(line + "\n"));
    EXPECT_EQ(running(), "bsd ietf local rules");
    EXPECT_EQ(platform.filesBelow("/"), before);
    EXPECT_EQ(stepsTaken(), Lines());
    platform.calls.clear();
    words.erase(words.begin() + 1);
    EXPECT_EQ(run(words), 0) << err;
    EXPECT_EQ(stepsTold(told), stepsTaken());
}

const std::string kPlannedArchive = "would archive " + kLocalDb + " (3 rows)";

INSTANTIATE_TEST_SUITE_P(
    Changes, SettingsDryRun,
    ::testing::Values(
        PlannedRun{"Nothing", {"server_port=5140"}, {"would start syslog-notify"}},
        PlannedRun{"Port",
                   {"server_port=1514"},
                   {"server_port: \"5140\" -> \"1514\"", "would close port 5140/udp", "would open port 1514/udp"}},
        PlannedRun{"OneOff", {"bsd_enable=0"}, {"bsd_enable: \"1\" -> \"0\""}},
        PlannedRun{"SharedPort",
                   {"server_port=6514", "server_trans=udp", "server_ietf_trans=udp", "server_ietf_ssl=0"},
                   {"would close port 5140/udp", "would close port 6514/tcp", "would open port 6514/udp"}},
        PlannedRun{"Storage", {"arch_count=7"}, {kPlannedArchive}},
        PlannedRun{"LocalArchivingOff", {"localarchive_enable=0"}, {kPlannedArchive}},
        PlannedRun{"Both", {"arch_count=7", "server_ietf_port=6515", "ietf_enable=0"}, {kPlannedArchive}}),
    CaseName());

TEST_F(SettingsApply, ADryRunAnswersInJson) {
    platform.addDatabase(kLocalDb, march(3));
    EXPECT_EQ(run({"set", "--dry-run", "--json", "server_port=1514", "arch_count=7"}), 0);
    EXPECT_EQ(
        out,
        R"({"dry_run":true,"changes":[{"key":"server_port","old":5140,"new":1514},)"
        R"({"key":"arch_count","old":5000,"new":7}],"steps":[{"action":"stop","name":"syslog-notify"},)"
        R"({"action":"stop","name":"pkg-Ombrel-bsd"},{"action":"stop","name":"pkg-Ombrel-ietf"},)"
        R"({"action":"withdraw","name":"syslog_server"},{"action":"withdraw","name":"syslog_server_ietf"},)"
        R"({"action":"declare","name":"syslog_server"},{"action":"declare","name":"syslog_server_ietf"},)"
        R"({"action":"reload","name":"firewall"},)"
        R"({"action":"write","name":"/var/packages/Ombrel/target/service/conf/server.conf"},)"
        R"({"action":"start","name":"pkg-Ombrel-bsd"},{"action":"start","name":"pkg-Ombrel-ietf"},)"
        R"({"action":"start","name":"syslog-notify"},{"action":"stop","name":"pkg-Ombrel-localarchive"},)"
        R"({"action":"archive","name":"/volume1/logs/VESKSYSLOGDB__LOCALARCH.DB"},)"
        R"({"action":"restart","name":"pkg-Ombrel-syslog"},)"
        R"({"action":"write","name":"/var/packages/Ombrel/target/service/conf/server.conf"},)"
        R"({"action":"restart","name":"pkg-Ombrel-bsd"},{"action":"restart","name":"pkg-Ombrel-ietf"},)"
        R"({"action":"start","name":"pkg-Ombrel-localarchive"}],)"
        R"("archives":[{"path":"/volume1/logs/VESKSYSLOGDB__LOCALARCH.DB","rows":3}],)"
        R"("ports_closed":["5140/udp"],"ports_opened":["1514/udp"],"ok":true,)"
        R"("findings":[{"name":"server_port","ok":true,"state":"ok","what":"port 1514/udp is free","advice":""}]})"
        "\n");
}

TEST_F(SettingsApply, AnAppliedChangeAnswersInJson) {
    EXPECT_EQ(run({"set", "--json", "arch_compress=0"}), 0);
    EXPECT_EQ(
        out,
        R"({"dry_run":false,"changes":[{"key":"arch_compress","old":true,"new":false}],"ok":true,"findings":[]})"
        "\n");
}

TEST_F(SettingsApply, ADryRunTellsWhatWouldBeRefused) {
    platform.conflicts = {"1514/udp"};
    EXPECT_EQ(run({"set", "--dry-run", "server_port=1514"}), 64);
    EXPECT_THAT(out, HasSubstr("wrong\tserver_port\tserver_port=\"1514\": port 1514/udp is declared by another"));
    EXPECT_EQ(run({"set", "--dry-run", "--force", "server_port=1514"}), 0);
}

// ---- files

TEST_F(SettingsApply, WhatShowPrintsChangesNothing) {
    EXPECT_EQ(run({"show"}), 0);
    platform.addFile(kSettingsInput, out);
    EXPECT_EQ(run({"diff", kSettingsInput}), 0);
    EXPECT_EQ(out + err, "");
    EXPECT_EQ(run({"diff", kSettingsInput, "--json"}), 0);
    EXPECT_EQ(out, "{\"same\":true,\"changes\":[]}\n");
    EXPECT_EQ(run({"apply", kSettingsInput}), 0);
    EXPECT_EQ(out + err, "");
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
}

TEST_F(SettingsApply, AFileIsComparedAndAppliedAsOneChange) {
    platform.addFile(kSettingsInput,
                     "# of the branch office\nserver_port = 1514\n\narch_count=\"7\"\nbsd_enable=\"0\"\n");
    EXPECT_EQ(run({"diff", kSettingsInput}), 1);
    EXPECT_EQ(out,
              "bsd_enable: \"1\" -> \"0\"\nserver_port: \"5140\" -> \"1514\"\narch_count: \"5000\" -> \"7\"\n");
    EXPECT_EQ(run({"diff", kSettingsInput, "--json"}), 1);
    EXPECT_EQ(out, R"({"same":false,"changes":[{"key":"bsd_enable","old":true,"new":false},)"
                   R"({"key":"server_port","old":5140,"new":1514},{"key":"arch_count","old":5000,"new":7}]})"
                   "\n");
    EXPECT_EQ(run({"apply", "--dry-run", kSettingsInput}), 0);
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
    EXPECT_EQ(run({"apply", kSettingsInput}), 0);
    EXPECT_EQ(out, "bsd_enable=\"0\"\nserver_port=\"1514\"\narch_count=\"7\"\n");
    EXPECT_EQ(
        platform.read(kServerConf),
        sampleText({{"server_ssl", "0"}, {"arch_by_device", "0"}, {"server_port", "1514"}, {"arch_count", "7"}}));
    EXPECT_EQ(running(), "ietf local");
    EXPECT_EQ(fakeMachine().turnsTaken, 1);
}

struct WrongSettingsFile {
    std::string name;
    std::string text;
    std::string complaint;
};

class SettingsFile : public SettingsApply, public ::testing::WithParamInterface<WrongSettingsFile> {};

TEST_P(SettingsFile, IsRefusedByLineBeforeAnythingIsDone) {
    platform.addFile(kSettingsInput, GetParam().text);
    for (const Lines& words : {Lines{"diff", kSettingsInput}, Lines{"apply", kSettingsInput}}) {
        EXPECT_EQ(run(words), 65);
        EXPECT_EQ(out, "");
        EXPECT_EQ(err, std::string("ombrel: ") + kSettingsInput + GetParam().complaint + "\n");
    }
    EXPECT_EQ(fakeMachine().turnsTaken, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, SettingsFile,
    ::testing::Values(WrongSettingsFile{"Key", "arch_count=1\njunk=\"1\"\n",
                                        ":2: no setting \"junk\"; ombrel settings show lists them"},
                      WrongSettingsFile{"Escape", "\x1b[2J=1\n",
                                        ":1: no setting \"\\x1b[2J\"; ombrel settings show lists them"},
                      WrongSettingsFile{"NoLine", "# x\n\nserver_port\n", ":3: expected KEY=\"VALUE\""},
                      WrongSettingsFile{"Twice", "arch_count=1\n#\narch_count=1\n",
                                        ":3: arch_count is given twice, first on line 1"},
                      WrongSettingsFile{"Value", "server_port=\"70000\"\n",
                                        ":1: server_port=\"70000\": expected a port from 1 to 65535"}),
    CaseName());

TEST_F(SettingsApply, AFileThatCannotBeReadIsTold) {
    EXPECT_EQ(run({"apply", kSettingsInput}), 66);
    EXPECT_EQ(err, std::string("ombrel: ") + kSettingsInput + ": No such file or directory\n");
    platform.addFolder(kSettingsInput);
    EXPECT_EQ(run({"diff", kSettingsInput}), 66);
    EXPECT_EQ(err, std::string("ombrel: ") + kSettingsInput + ": Is a directory\n");
}

TEST_F(SettingsApply, AFileIsRefusedForSettingsThatCannotBeTogether) {
    platform.addFile(kSettingsInput, "server_ssl=1\n");
    EXPECT_EQ(run({"apply", kSettingsInput}), 64);
    EXPECT_EQ(err, "ombrel: server_ssl=1 needs server_trans=tcp: TLS runs over TCP\n");
}

}  // namespace

}  // namespace ombrel::test::cmd_settings_apply
