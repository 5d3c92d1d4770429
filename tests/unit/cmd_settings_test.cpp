// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel settings` with the library on the recording platform.
#include "tests/unit/archiver_test.h"
#include "tests/unit/command_line_run.h"
#include "tests/unit/settings_update_test.h"

namespace ombrel::test::cmd_settings {

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class SettingsCommand : public SettingsUpdateTest {
protected:
    SettingsCommand() {
        // TLS over UDP could not have been started.
        platform.addFile(kServerConf, sampleText({{"server_ssl", "0"}}));
        platform.addFolder(kDest);
    }
    int run(const Lines& words) { return command.runBelow("settings", words); }
    void expectNothingDone() {
        EXPECT_EQ(running(), "bsd ietf local");
        EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
        EXPECT_EQ(platform.calls.count("VLIBServiceStart"), 0);
        EXPECT_EQ(platform.calls.count("VLIBCFileSetKeys"), 0);
    }

    CommandLineRun command;
    std::string& out = command.out;
    std::string& err = command.err;
};

TEST_F(SettingsCommand, ShowsEverySettingInTheOrderOfTheRecord) {
    EXPECT_EQ(run({"show"}), 0);
    EXPECT_EQ(err, "");
    EXPECT_EQ(out,
              "bsd_enable=\"1\"\nserver_ssl=\"0\"\nserver_port=\"5140\"\nserver_trans=\"udp\"\nietf_enable=\"1\"\n"
              "server_ietf_ssl=\"1\"\nserver_ietf_port=\"6514\"\nserver_ietf_trans=\"tcp\"\n"
              "server_db_loc=\"logs\"\nserver_db_path=\"/volume1/logs/db\"\n"
              "server_ca_key=\"/etc/ssl/ombrel.key\"\nserver_ca_file=\"/etc/ssl/ombrel.crt\"\n"
              "arch_dest=\"/volume1/logs\"\narch_time=\"86400\"\narch_size=\"64\"\narch_count=\"5000\"\n"
              "arch_fmt=\"txt\"\narch_compress=\"1\"\narch_by_device=\"1\"\nlocalarchive_enable=\"1\"\n"
              "arch_last_time=\"1600000000\"\nsystem_flush_line=\"100\"\nsystem_flush_timeout=\"10\"\n"
              "arch_time_enable=\"1\"\narch_count_enable=\"1\"\n");
    expectNothingDone();
}

TEST_F(SettingsCommand, ShowsWhatCouldSteerATerminalInASafeWay) {
    platform.addFile(kServerConf, sampleText({{"server_ca_key", "/a\x1b[2J"}}));
    EXPECT_EQ(run({"show"}), 0);
    EXPECT_THAT(out, HasSubstr("server_ca_key=\"/a\\x1b[2J\"\n"));
}

TEST_F(SettingsCommand, AppliesAChangeAndShowsIt) {
    EXPECT_EQ(run({"set", "server_port=1514", "bsd_enable=0", "arch_count=7", "arch_fmt=txt"}), 0);
    EXPECT_EQ(err, "");
    EXPECT_EQ(out, "bsd_enable=\"0\"\nserver_port=\"1514\"\narch_count=\"7\"\n");
    EXPECT_EQ(platform.read(kServerConf),
              sampleText({{"server_ssl", "0"}, {"server_port", "1514"}, {"arch_count", "7"}}));
    EXPECT_EQ(running(), "ietf local");
    EXPECT_EQ(platform.read(kPorts), receiverSections("udp", "1514", "tcp", "6514"));
    EXPECT_EQ(platform.firewallReloads, 1);
    EXPECT_THAT(platform.events, ElementsAre("stopped Log receiving (BSD)"));
}

TEST_F(SettingsCommand, OfValuesAsTheyAreStopsNothing) {
    platform.jobs["pkg-Ombrel-bsd"] = 7;
    EXPECT_EQ(run({"set", "server_port=5140", "bsd_enable=1", "server_db_loc=logs"}), 0);
    EXPECT_EQ(out + err, "");
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
}

struct WrongWords {
    std::string name;
    Lines words;
    std::string complaint;
};

class SettingsCommandRefuses : public SettingsCommand, public ::testing::WithParamInterface<WrongWords> {};

TEST_P(SettingsCommandRefuses, WrongWordsInOneLineBeforeAnythingIsDone) {
    EXPECT_EQ(run(GetParam().words), 64);
    EXPECT_EQ(out, "");
    EXPECT_EQ(err, "ombrel: " + GetParam().complaint + "\n");
    expectNothingDone();
}

INSTANTIATE_TEST_SUITE_P(
    Words, SettingsCommandRefuses,
    ::testing::Values(
        WrongWords{"Nothing",
                   {},
                   "expected a command: show, get, check, diff, set or apply; ombrel settings --help says more"},
        WrongWords{"NothingToSet", {"set"}, "its word KEY=VALUE is missing; ombrel settings set --help says more"},
        WrongWords{"TooMuchToShow",
                   {"show", "server_port"},
                   "one word too many: \"server_port\"; ombrel settings show --help says more"},
        WrongWords{"NothingToGet", {"get"}, "its word KEY is missing; ombrel settings get --help says more"},
        WrongWords{"KeyToGet", {"get", "junk"}, "no setting \"junk\"; ombrel settings show lists them"},
        WrongWords{
            "OtherAction",
            {"put"},
            "no command \"put\"; expected show, get, check, diff, set or apply; ombrel settings --help says "
            "more"},
        WrongWords{
            "Key", {"set", "server_ssl=0", "junk=1"}, "no setting \"junk\"; ombrel settings show lists them"},
        WrongWords{"Value", {"set", "server_port=0"}, "server_port=\"0\": expected a port from 1 to 65535"},
        WrongWords{
            "Escape", {"set", "server_port=\x1b[2J"}, "server_port=\"\\x1b[2J\": expected a port from 1 to 65535"},
        WrongWords{"Together", {"set", "server_ssl=1"}, "server_ssl=1 needs server_trans=tcp: TLS runs over TCP"}),
    CaseName());

TEST_F(SettingsCommand, GetsSingleValuesAsTheyAre) {
    EXPECT_EQ(run({"get", "arch_dest", "server_port", "bsd_enable"}), 0);
    EXPECT_EQ(out, "/volume1/logs\n5140\n1\n");
    EXPECT_EQ(run({"get", "arch_dest", "server_port", "bsd_enable", "--json"}), 0);
    EXPECT_EQ(out, "{\"arch_dest\":\"/volume1/logs\",\"server_port\":5140,\"bsd_enable\":true}\n");
}

TEST_F(SettingsCommand, ShowsEverySettingInJsonWithItsType) {
    EXPECT_EQ(run({"show", "--json"}), 0);
    EXPECT_EQ(
        out,
        R"({"bsd_enable":true,"server_ssl":false,"server_port":5140,"server_trans":"udp","ietf_enable":true,)"
        R"("server_ietf_ssl":true,"server_ietf_port":6514,"server_ietf_trans":"tcp","server_db_loc":"logs",)"
        R"("server_db_path":"/volume1/logs/db","server_ca_key":"/etc/ssl/ombrel.key",)"
        R"("server_ca_file":"/etc/ssl/ombrel.crt","arch_dest":"/volume1/logs","arch_time":86400,"arch_size":64,)"
        R"("arch_count":5000,"arch_fmt":"txt","arch_compress":true,"arch_by_device":true,)"
        R"("localarchive_enable":true,"arch_last_time":1600000000,"system_flush_line":100,)"
        R"("system_flush_timeout":10,"arch_time_enable":true,"arch_count_enable":true})"
        "\n");
    expectNothingDone();
}

TEST_F(SettingsCommand, TakesTheTurnForChangesAlone) {
    EXPECT_EQ(run({"show"}), 0);
    EXPECT_EQ(run({"set", "arch_count=7", "--dry-run"}), 0);
    EXPECT_EQ(fakeMachine().turnsTaken, 0);
    fakeMachine().turnResult = 75;
    EXPECT_EQ(run({"set", "arch_count=7"}), 75);
    EXPECT_EQ(err, "ombrel: no turn\n");
    expectNothingDone();
}

TEST_F(SettingsCommand, SaysItsUsage) {
    EXPECT_EQ(run({"set", "--help"}), 0);
    EXPECT_THAT(out, StartsWith("usage: ombrel settings set "));
    EXPECT_EQ(err, "");
}

TEST_F(SettingsCommand, CannotDoWithoutReadableSettings) {
    platform.addFile(kServerConf, sampleText({}, {"arch_time"}));
    const std::string complaint =
        "ombrel: " + std::string(kServerConf) + " cannot be read or lacks a required key\n";
    EXPECT_EQ(run({"show"}), 78);
    EXPECT_EQ(err, complaint);
    EXPECT_EQ(run({"set", "server_port=1514"}), 78);
    EXPECT_EQ(err, complaint);
    EXPECT_EQ(run({"set", "server_port=x"}), 64) << "wrong words are wrong whatever the settings are";
    expectNothingDone();
}

TEST_F(SettingsCommand, TellsThatTheReceiversCouldNotBeChanged) {
    platform.failCall("VLIBServicectlJobStart", 1);
    EXPECT_EQ(run({"set", "server_port=1514", "arch_count=7"}), 1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(
        err,
        "ombrel: the receivers could not be changed; the storage settings are as they were; down: pkg-Ombrel-bsd, "
        "pkg-Ombrel-ietf; the system log names the step, and the log of a job why it did not start\n");
}

TEST_F(SettingsCommand, TellsThatTheStorageCouldNotBeChanged) {
    platform.failCall("VLIBServicectlJobStart", 3);
    EXPECT_EQ(run({"set", "server_port=1514", "arch_count=7"}), 1);
    EXPECT_THAT(
        err, StartsWith("ombrel: the storage settings could not be changed; down: pkg-Ombrel-localarchive; the "));
}

TEST_F(SettingsCommand, TellsWhatThePlatformSaysOfTheFailure) {
    platform.calls.onFailure = [this] { platform.error.code = 0x1000 + EACCES; };
    platform.failCall("VLIBCFileSetKeys");
    EXPECT_EQ(run({"set", "server_port=1514"}), 1);
    EXPECT_THAT(err, HasSubstr("the receivers could not be changed (Permission denied); the storage settings"));
}

TEST_F(SettingsCommand, NamesNoJobThatWasToBeDown) {
    platform.failCall("VLIBServicectlJobStart", 1);
    EXPECT_EQ(run({"set", "bsd_enable=0"}), 1);
    EXPECT_THAT(err, HasSubstr("as they were; down: pkg-Ombrel-ietf; "));
}

TEST_F(SettingsCommand, DoesNotTakeAnEarlierErrorForThatOfTheFailure) {
    platform.error.code = 0x1000 + EACCES;
    platform.failCall("VLIBCFileSetKeys");
    EXPECT_EQ(run({"set", "server_port=1514"}), 1);
    EXPECT_THAT(err, Not(HasSubstr("Permission denied")));
}

}  // namespace

}  // namespace ombrel::test::cmd_settings
