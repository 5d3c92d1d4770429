// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel settings check`, and what a change is refused for: what this machine cannot do.
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/failure_sweep.h"
#include "tests/unit/rule_file.h"
#include "tests/unit/settings_update_test.h"

namespace ombrel::test::cmd_settings_check {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// A machine that is as its settings say.
void prepareGoodMachine(FakePlatform& platform) {
    prepareRunningMachine(platform);
    platform.addFile(kServerConf, sampleText({{"server_ssl", "0"}}));
    platform.addFolder(kDest);
    platform.addShare("logs");
}

class SettingsCheck : public PlatformTest {
protected:
    SettingsCheck() {
        prepareGoodMachine(platform);
        platform.calls.clear();
    }
    int run(const Lines& words) { return command.runBelow("settings", words); }
    void expectFound(int exitCode, const std::string& line) {
        EXPECT_EQ(run({"check"}), exitCode);
        EXPECT_THAT(command.out, HasSubstr(line + "\n"));
    }
    void settings(const Settings& changed) {
        Settings all = {{"server_ssl", "0"}};
        for (const auto& [key, value] : changed)
            all[key] = value;
        platform.addFile(kServerConf, sampleText(all));
    }
    CheckedMachine& machine() { return fakeMachine().checked; }

    CommandLineRun command;
};

const std::string kGoodSettings =
    "ok\tserver_port\tport 5140/udp is free\t-\n"
    "ok\tserver_ietf_port\tport 6514/tcp is free\t-\n"
    "ok\tserver_ca_file\tkey and certificate are readable, belong together and are valid now\t-\n"
    "ok\tarch_dest\t/volume1/logs is a local folder that can be written to, with room\t-\n"
    "ok\tserver_db_loc\tthe share \"logs\" is local\t-\n";

TEST_F(SettingsCheck, OfAGoodMachineIsGood) {
    EXPECT_EQ(run({"check"}), 0);
    EXPECT_EQ(command.out, kGoodSettings);
    EXPECT_EQ(command.err, "");
}

TEST_F(SettingsCheck, TellsAllThatIsWrongAtOnce) {
    settings({{"server_port", "0"}, {"server_ssl", "1"}, {"arch_dest", "/nowhere"}, {"server_db_loc", "none"}});
    machine().tlsFault = "server_ca_file=\"/x\" has expired";
    EXPECT_EQ(run({"check"}), 1);
    EXPECT_EQ(command.out,
              "wrong\tserver_port\tserver_port=\"0\"\texpected a port from 1 to 65535\n"
              "wrong\tserver_ssl\tserver_ssl=1 needs server_trans=tcp: TLS runs over TCP\t-\n"
              "ok\tserver_ietf_port\tport 6514/tcp is free\t-\n"
              "wrong\tserver_ca_file\tserver_ca_file=\"/x\" has expired\texpected a readable key without password "
              "and its certificate, valid now\n"
              "wrong\tarch_dest\tarch_dest=\"/nowhere\": No such file or directory\texpected a folder on a local "
              "file system that can be written to\n"
              "wrong\tserver_db_loc\tserver_db_loc=\"none\": there is no such share\texpected a share on a local "
              "file system; ombrel storage shares lists them\n");
}

TEST_F(SettingsCheck, AnswersInJson) {
    settings({{"server_db_loc", ""}});
    platform.failCall("VESKGetFSType");
    platform.calls.onFailure = [this] { platform.error.code = 0x1000 + EIO; };
    EXPECT_EQ(run({"check", "--json"}), 0);
    EXPECT_EQ(
        command.out,
        R"j({"ok":true,"findings":[{"name":"server_port","ok":true,"state":"ok","what":"port 5140/udp is free",)j"
        R"j("advice":""},{"name":"server_ietf_port","ok":true,"state":"ok","what":"port 6514/tcp is free",)j"
        R"j("advice":""},{"name":"server_ca_file","ok":true,"state":"ok","what":)j"
        R"j("key and certificate are readable, belong together and are valid now","advice":""},)j"
        R"j({"name":"arch_dest","ok":null,"state":"unknown","what":"arch_dest=\"/volume1/logs\": its file system )j"
        R"j(cannot be told (Input/output error)","advice":"expected a folder on a local file system that can be )j"
        R"j(written to"},{"name":"server_db_loc","ok":true,"state":"ok","what":"no share is named","advice":""}]})j"
        "\n");
}

TEST_F(SettingsCheck, NamesWhoHasAPort) {
    machine().ports["5140/udp"] = {true, {}, {}};
    expectFound(0, "ok\tserver_port\tport 5140/udp is held by this package\t-");
    const std::string advice = "\texpected a port that nobody else has declared or holds";
    platform.conflicts = {"5140/udp"};
    machine().ports["5140/udp"] = {
        false, {"bound by process 7 (/usr/bin/nc)"}, {"declared as [web] of web.sc (Web)"}};
    expectFound(1,
                "wrong\tserver_port\tserver_port=\"5140\": port 5140/udp is declared as [web] of web.sc (Web), "
                "bound by process 7 (/usr/bin/nc)" +
                    advice);
    machine().arePortsKnown = false;
    expectFound(
        1,
        "wrong\tserver_port\tserver_port=\"5140\": port 5140/udp is declared by another rule or service or "
        "held by another program" +
            advice);
    platform.jobs["pkg-Ombrel-bsd"] = 0;
    expectFound(0,
                "warning\tserver_port\tserver_port=\"5140\": port 5140/udp is declared by another rule or service "
                "or held by another program" +
                    advice);
}

TEST_F(SettingsCheck, TriesPortsThatNobodyHas) {
    machine().bindErrors["5140/udp"] = EACCES;
    expectFound(0, "warning\tserver_port\tport 5140/udp could not be tried: only root may take it\t-");
    machine().bindErrors["5140/udp"] = EADDRINUSE;
    expectFound(
        1,
        "wrong\tserver_port\tserver_port=\"5140\": port 5140/udp is held by a program that cannot be looked "
        "at\texpected a port that nobody else holds");
    machine().bindErrors["5140/udp"] = ENFILE;
    expectFound(0, "cannot tell\tserver_port\tport 5140/udp could not be tried: Too many open files in system\t-");
    machine().ports["5140/udp"].isOurs = true;
    expectFound(0, "ok\tserver_port\tport 5140/udp is held by this package\t-");
}

TEST_F(SettingsCheck, APlainUserCannotTellWhoHoldsAPort) {
    const std::string unknown =
        "cannot tell\tserver_port\tport 5140/udp is held by a program that this user cannot look at\task as root";
    machine().isRoot = false;
    machine().bindErrors["5140/udp"] = EADDRINUSE;
    expectFound(0, unknown);
    platform.conflicts = {"5140/udp"};
    machine().ports["5140/udp"].holders = {"bound by a process that cannot be looked at, or by the kernel"};
    expectFound(0, unknown);
    machine().ports["5140/udp"].declarers = {"declared as [web] of web.sc (Web)"};
    EXPECT_EQ(run({"check"}), 1);
    machine().tlsFault = "cannot read it";
    expectFound(1, "cannot tell\tserver_ca_file\tcannot read it\task as root");
}

TEST_F(SettingsCheck, LooksAtTheCertificateByItsUse) {
    machine().tlsFault = "server_ca_key=\"/etc/ssl/ombrel.key\" is bad";
    expectFound(1,
                "wrong\tserver_ca_file\tserver_ca_key=\"/etc/ssl/ombrel.key\" is bad\texpected a readable key "
                "without password and its certificate, valid now");
    platform.jobs["pkg-Ombrel-ietf"] = 0;
    expectFound(0,
                "warning\tserver_ca_file\tserver_ca_key=\"/etc/ssl/ombrel.key\" is bad\texpected a readable key "
                "without password and its certificate, valid now");
    platform.addFile(kRules, ruleSection({"r", "RAW", "tcp", 7000, true, true}));
    EXPECT_EQ(run({"check"}), 1);
    settings({{"server_ca_key", ""}, {"server_ca_file", ""}});
    expectFound(1,
                "wrong\tserver_ca_file\tserver_ca_key and server_ca_file are empty, and a receiver or rule has "
                "TLS\texpected the paths of a key and its certificate");
    platform.removeFile(kRules);
    expectFound(0, "ok\tserver_ca_file\tno certificate, and nobody needs one\t-");
}

TEST_F(SettingsCheck, LooksAtTheArchiveFolder) {
    const std::string advice = "\texpected a folder on a local file system that can be written to";
    const std::string named = "wrong\tarch_dest\tarch_dest=\"/volume1/logs\": ";
    machine().files[kDest] = {FileFacts::Kind::kFile, 0600, 0, true, true, true};
    expectFound(1, named + "it is no folder" + advice);
    machine().files[kDest] = {FileFacts::Kind::kFolder, 0500, 0, true, true, false};
    expectFound(1, named + "it cannot be written to" + advice);
    machine().isRoot = false;
    expectFound(
        0,
        "cannot tell\tarch_dest\tarch_dest=\"/volume1/logs\": this user cannot write to it; root may\task as "
        "root");
    machine() = {};
    platform.space[kDest] = {1 << 20, 63};
    expectFound(1, named + "less than 67.1 MB are free\texpected room for the working databases and 67.1 MB more");
    settings({{"arch_dest", ""}});
    expectFound(1, "wrong\tarch_dest\tarch_dest=\"\": nothing that is received can be kept" + advice);
}

TEST_F(SettingsCheck, WantsRoomForTheWorkingDatabases) {
    platform.addSparseFile(kLocalDb, 100 << 20);
    platform.space[kDest] = {1 << 20, 163};
    EXPECT_EQ(run({"check"}), 1);
    platform.space[kDest] = {1 << 20, 164};
    EXPECT_EQ(run({"check"}), 0);
}

// ---- changes

struct RefusedSettings {
    std::string name;
    Lines words;
    std::string complaint;
};

class SettingsChangeIsRefused : public SettingsCheck, public ::testing::WithParamInterface<RefusedSettings> {};

TEST_P(SettingsChangeIsRefused, UnlessItIsForced) {
    platform.conflicts = {"1514/udp", "1515/udp"};
    machine().tlsFault = "server_ca_key=\"/k\" is bad";
    Lines words = {"set"};
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    EXPECT_EQ(run(words), 64);
    EXPECT_EQ(command.out, "");
    EXPECT_EQ(command.err, "ombrel: " + GetParam().complaint + "; --force applies it all the same\n");
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
    words.emplace_back("--force");
    EXPECT_EQ(run(words), 0) << command.err;
    EXPECT_THAT(command.err, HasSubstr("ombrel: warning: "));
}

const std::string kTlsRefusal =
    "server_ca_key=\"/k\" is bad, expected a readable key without password and its certificate, valid now";

INSTANTIATE_TEST_SUITE_P(
    Changes, SettingsChangeIsRefused,
    ::testing::Values(
        RefusedSettings{
            "Port",
            {"server_port=1514", "ietf_enable=0"},
            "server_port=\"1514\": port 1514/udp is declared by another rule or service or held by another "
            "program, expected a port that nobody else has declared or holds"},
        RefusedSettings{"Certificate", {"server_ca_key=/k"}, kTlsRefusal},
        RefusedSettings{"CertificateThatIsReadAgain", {"arch_count=7"}, kTlsRefusal},
        RefusedSettings{
            "Folder",
            {"arch_dest=/none", "ietf_enable=0"},
            "arch_dest=\"/none\": No such file or directory, expected a folder on a local file system that can "
            "be written to"},
        RefusedSettings{
            "Share",
            {"server_db_loc=none", "arch_count=7", "ietf_enable=0"},
            "server_db_loc=\"none\": there is no such share, expected a share on a local file system; ombrel "
            "storage shares lists them"},
        RefusedSettings{"Several",
                        {"arch_dest=/none", "server_ca_key=/k"},
                        kTlsRefusal +
                            "; arch_dest=\"/none\": No such file or directory, expected a folder on a local file "
                            "system that can be written to"}),
    CaseName());

TEST_F(SettingsCheck, AChangeIsLookedAtOnlyAsFarAsItGoes) {
    platform.conflicts = {"5140/udp"};
    settings({{"arch_dest", "/nowhere"}, {"server_db_loc", "none"}});
    EXPECT_EQ(run({"set", "server_ietf_port=6515"}), 0) << command.err;
    EXPECT_EQ(command.err, "");
}

TEST_F(SettingsCheck, ReceiversMaySwapTheirPorts) {
    EXPECT_EQ(run({"set", "server_port=6514", "server_trans=tcp", "server_ietf_port=5140", "server_ietf_trans=udp",
                   "server_ietf_ssl=0"}),
              0)
        << command.err;
}

TEST_F(SettingsCheck, ARuleKeepsItsPort) {
    platform.addFile(kPorts, receiverSections("udp", "5140", "tcp", "6514") + rulePort("lamp", "udp", "1514"));
    EXPECT_EQ(run({"set", "server_port=1514"}), 64);
    EXPECT_THAT(command.err, HasSubstr("port 1514/udp is declared by another rule"));
}

TEST_F(SettingsCheck, WhatCannotBeToldIsNoFaultOfTheWords) {
    platform.calls.onFailure = [this] { platform.error.code = 0x1000 + EIO; };
    platform.failCall("VLIBIsPortConflict");
    EXPECT_EQ(run({"set", "server_port=1514"}), 1);
    EXPECT_EQ(command.err,
              "ombrel: server_port=\"1514\": whether port 1514/udp is free cannot be told (Input/output error); "
              "--force applies it all the same\n");
}

TEST_F(SettingsCheck, AWarningStopsNothing) {
    machine().bindErrors["514/udp"] = EACCES;
    EXPECT_EQ(run({"set", "server_port=514"}), 0);
    EXPECT_EQ(command.out, "server_port=\"514\"\n");
    EXPECT_EQ(command.err, "ombrel: warning: port 514/udp could not be tried: only root may take it\n");
}

// ---- every call in turn

/// Exit code and the first words of each line that is not "ok".
std::string checkOutcome(const Lines& words) {
    CommandLineRun command;
    const int exitCode = command.runBelow("settings", words);
    std::string text = std::to_string(exitCode);
    const std::string said = command.out + command.err;
    for (std::size_t begin = 0; begin < said.size(); begin = said.find('\n', begin) + 1) {
        const std::string line = said.substr(begin, said.find('\n', begin) - begin);
        if (!line.starts_with("ok\t"))
            text += " " + line.substr(0, line.find_first_of("\t:", line.find('\t') + 1));
    }
    return text;
}

/// Each key of the settings is asked for once, then once more where the working databases are looked for.
std::map<std::string, std::string> checkOutcomes() {
    std::map<std::string, std::string> outcomes = {
        {"VLIBIsPortConflict#1", "1 wrong\tserver_port"}, {"VLIBIsPortConflict#2", "1 wrong\tserver_ietf_port"},
        {"VESKGetFSType#1", "0 cannot tell\tarch_dest"},  {"VESKFSIsRemoteFS#1", "1 wrong\tarch_dest"},
        {"VESKFSIsImageFS#1", "1 wrong\tarch_dest"},      {"statfs64", "1 wrong\tarch_dest"},
        {"VESKShareGet", "1 wrong\tserver_db_loc"},       {"VESKGetFSType#2", "1 wrong\tserver_db_loc"},
        {"VESKFSIsImageFS#2", "1 wrong\tserver_db_loc"},  {"VESKFSIsRemoteFS#2", "1 wrong\tserver_db_loc"}};
    for (int n = 1; n <= 23; ++n)
        outcomes["VLIBCFileGetKeyValue#" + std::to_string(n)] = "78 ombrel";
    // The keys of the IETF receiver may be missing; it is one for datagrams then.
    for (int n = 4; n <= 6; ++n)
        outcomes["VLIBCFileGetKeyValue#" + std::to_string(n)] = n == 5 ? "1 wrong\tserver_ietf_ssl" : "0";
    return outcomes;
}

const Operation kCheckInTurn = {"SettingsCheck", prepareGoodMachine, [] { return checkOutcome({"check"}); }, "0",
                                checkOutcomes()};

INSTANTIATE_TEST_SUITE_P(SettingsCommands, FailureSweep, ::testing::Values(kCheckInTurn), operationName);

}  // namespace

}  // namespace ombrel::test::cmd_settings_check
