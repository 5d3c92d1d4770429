// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Applying a change of the receiver settings.

#include "tests/unit/settings_update_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Record = _SYSLOG_CONF_SETTINGS_tag;

const std::string kServerPath = "/conf/server.conf";
const std::string kNotifyStart = "VLIBServiceStart(\"syslog-notify\", 1)";

Lines withdrawal(const std::string& section) {
    const std::string file = "\"" + std::string(kPorts) + "\"";
    return {"VLIBCSzHashAlloc(1024)", "VLIBCFileExist(" + file + ")",
            "VLIBCFileGetSection(" + file + ", \"" + section + "\")",
            "VLIBServiceConfSectionRemove(\"vesk_syslog.sc[" + section + "]\", \"2 1 3 4 2 zero\")",
            "VLIBCSzHashFree()"};
}

Lines declaration(const std::string& section, const std::string& description, int protocol, int port) {
    return {"VESKServiceComposePortInfo(1, 0, " + std::to_string(protocol) + ", " + std::to_string(port) + ")",
            "VESKServiceComposeSectionInfo(\"" + section + "\", \"Ombrel\", \"" + description + "\", 1)",
            "VLIBServiceConfSectionSet(\"vesk_syslog.sc[" + section + "]\", \"2 1 1 4 2 zero\")"};
}

class ServerUpdate : public SettingsUpdateTest {
protected:
    int apply() { return SyslogServerConfSet(kServerPath, current, wanted); }
};

TEST_F(ServerUpdate, TakesItsStepsInThisOrder) {
    wanted.server_port = 1514;
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(platform.calls.lines(),
              joined({{"VLIBServiceStop(\"syslog-notify\", 1)", "VLIBServicectlJobStop(\"pkg-Ombrel-bsd\")",
                       "VLIBServicectlJobStop(\"pkg-Ombrel-ietf\")"},
                      withdrawal("syslog_server"),
                      withdrawal("syslog_server_ietf"),
                      declaration("syslog_server", "BSD log receiving of Ombrel", 2, 1514),
                      declaration("syslog_server_ietf", "IETF log receiving of Ombrel", 1, 6514),
                      {"VESKFwRuleHup()", "VLIBCSzHashAlloc(1024)"},
                      writing(kServerPath, {{"server_port", "1514"},
                                            {"server_trans", "udp"},
                                            {"server_ssl", "1"},
                                            {"server_ietf_port", "6514"},
                                            {"server_ietf_trans", "tcp"},
                                            {"server_ietf_ssl", "1"},
                                            {"server_ca_key", "/etc/ssl/ombrel.key"},
                                            {"server_ca_file", "/etc/ssl/ombrel.crt"}}),
                      startAgain("pkg-Ombrel-bsd"),
                      startAgain("pkg-Ombrel-ietf"),
                      {kNotifyStart, "VLIBCSzHashFree()"}}));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(ServerUpdate, OfEqualRecordsStartsTheNotifierAndNothingElse) {
    platform.services["syslog-notify"] = false;
    EXPECT_EQ(apply(), 0);
    EXPECT_THAT(platform.calls.lines(), ElementsAre(kNotifyStart));
    EXPECT_TRUE(platform.services["syslog-notify"]);
}

TEST_F(ServerUpdate, ChangesNeitherRecord) {
    wanted.server_port = 1514;
    wanted.bsd_enable = 0;
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(current.server_port, 5140);
    EXPECT_EQ(current.bsd_enable, 1);
    EXPECT_EQ(wanted.server_port, 1514);
    EXPECT_EQ(wanted.bsd_enable, 0);
}

class ServerChange : public SettingsUpdateTest, public ::testing::WithParamInterface<Change> {};

TEST_P(ServerChange, IsOneOrNone) {
    GetParam().make(wanted);
    EXPECT_EQ(SyslogServerConfSet(kServerPath, current, wanted), 0);
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), GetParam().applied ? 2 : 0);
    EXPECT_EQ(platform.calls.count("VLIBCFileSetKeys") > 0, GetParam().applied);
    EXPECT_EQ(platform.firewallReloads, GetParam().applied ? 1 : 0);
    EXPECT_TRUE(platform.services["syslog-notify"]);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, ServerChange,
    ::testing::Values(Change{"BsdOff", [](Record& r) { r.bsd_enable = 0; }, true},
                      Change{"BsdPort", [](Record& r) { r.server_port = 1; }, true},
                      Change{"BsdTransport", [](Record& r) { r.server_trans = 0; }, true},
                      Change{"BsdTls", [](Record& r) { r.server_ssl = 0; }, true},
                      Change{"IetfOff", [](Record& r) { r.ietf_enable = 0; }, true},
                      Change{"IetfPort", [](Record& r) { r.server_ietf_port = 1; }, true},
                      Change{"IetfTransport", [](Record& r) { r.server_ietf_trans = 1; }, true},
                      Change{"IetfTls", [](Record& r) { r.server_ietf_ssl = 0; }, true},
                      Change{"TlsKey", [](Record& r) { r.server_ca_key = "/other"; }, true},
                      Change{"TlsCertificate", [](Record& r) { r.server_ca_file = "/other"; }, true},
                      Change{"Share", [](Record& r) { r.server_db_loc = "other"; }, false},
                      Change{"DatabaseFolder", [](Record& r) { r.server_db_path = "/other"; }, false},
                      Change{"Destination", [](Record& r) { r.arch_dest = "/other"; }, false},
                      Change{"Rule", [](Record& r) { r.arch_count = 1; }, false},
                      Change{"LocalArchivingOff", [](Record& r) { r.localarchive_enable = 0; }, false}),
    CaseName());

struct PortCase {
    std::string name;
    int bsdPort;
    int bsdTransport;
    int ietfPort;
    int ietfTransport;
    std::string sections;
};

class ServerPorts : public SettingsUpdateTest, public ::testing::WithParamInterface<PortCase> {};

TEST_P(ServerPorts, AreDeclaredOnceForEachPortAndTransport) {
    wanted.server_port = GetParam().bsdPort;
    wanted.server_trans = GetParam().bsdTransport;
    wanted.server_ietf_port = GetParam().ietfPort;
    wanted.server_ietf_trans = GetParam().ietfTransport;
    ASSERT_EQ(SyslogServerConfSet(kServerPath, current, wanted), 0);
    EXPECT_EQ(platform.read(kPorts), GetParam().sections);
}

std::string sharedSection(const std::string& protocol) {
    return portSection("syslog_server", "BSD/IETF log receiving of Ombrel", protocol, "514");
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, ServerPorts,
    ::testing::Values(
        PortCase{"TwoPorts", 514, 1, 6514, 0, receiverSections("udp", "514", "tcp", "6514")},
        PortCase{"OnePortTwoTransports", 514, 1, 514, 0, receiverSections("udp", "514", "tcp", "514")},
        PortCase{"TwoPortsOneTransport", 514, 1, 515, 1, receiverSections("udp", "514", "udp", "515")},
        PortCase{"SharedUdp", 514, 1, 514, 1, sharedSection("udp")},
        PortCase{"SharedTcp", 514, 0, 514, 0, sharedSection("tcp")},
        PortCase{"OtherTransportsAreTcp", 514, 7, 514, 7, sharedSection("tcp")}),
    CaseName());

TEST_F(ServerUpdate, KeepsThePortSectionsOfTheRules) {
    const std::string rule = portSection("rule", "R", "tcp", "2514");
    platform.addFile(kPorts, rule + receiverSections("udp", "5140", "tcp", "6514"));
    wanted.server_port = 1514;
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(platform.read(kPorts), rule + receiverSections("udp", "1514", "tcp", "6514"));
}

TEST_F(ServerUpdate, DeclaresThePortsWithoutAFileOfThem) {
    platform.removeFile(kPorts);
    wanted.server_port = 1514;
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(platform.read(kPorts), receiverSections("udp", "1514", "tcp", "6514"));
}

TEST_F(ServerUpdate, TurningAReceiverOffRecordsItAndKeepsItsPort) {
    wanted.bsd_enable = 0;
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(running(), "ietf local");
    EXPECT_EQ(platform.read(kEnabledJobs), "pkg-Ombrel-bsd=\"no\"\n");
    EXPECT_THAT(platform.events, ElementsAre("stopped Log receiving (BSD)"));
    EXPECT_EQ(platform.read(kPorts), receiverSections("udp", "5140", "tcp", "6514"));
}

TEST_F(ServerUpdate, TurningAReceiverOnRecordsIt) {
    platform.jobs["pkg-Ombrel-ietf"] = 0;
    readRecords();
    wanted.ietf_enable = 1;
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(running(), "bsd ietf local");
    EXPECT_EQ(platform.read(kEnabledJobs), "pkg-Ombrel-ietf=\"yes\"\n");
    EXPECT_THAT(platform.events, ElementsAre("started Log receiving (IETF)"));
}

TEST_F(ServerUpdate, ReceiversThatStayOffStayStopped) {
    platform.jobs = {};
    readRecords();
    wanted.server_ca_file = "/other";
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(running(), "");
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 2);
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStart"), 0);
    EXPECT_FALSE(platform.exists(kEnabledJobs));
}

TEST_F(ServerUpdate, WritesItsKeysAloneAndKeepsEveryOtherLine) {
    platform.addFile(kServerPath, "# note\nserver_port=\"1\"\narch_count=\"5\"\n");
    wanted = {};
    wanted.server_port = -1;
    wanted.server_trans = 2;
    wanted.server_ssl = 7;
    wanted.server_ca_key = "a \"b\"";
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(platform.read(kServerPath),
              "# note\nserver_port=\"18446744073709551615\"\narch_count=\"5\"\nserver_trans=\"tcp\"\n"
              "server_ssl=\"1\"\nserver_ietf_port=\"0\"\nserver_ietf_trans=\"tcp\"\nserver_ietf_ssl=\"0\"\n"
              "server_ca_key=\"a \"b\"\"\nserver_ca_file=\"\"\n");
    EXPECT_EQ(platform.read(kServerConf), sampleText());
}

TEST_F(ServerUpdate, DoesWithoutTheNotifierAndTheFirewall) {
    platform.failEveryCall("VLIBServiceStop");
    platform.failEveryCall("VLIBServiceStart");
    platform.failEveryCall("VESKFwRuleHup");
    wanted.server_port = 1514;
    EXPECT_EQ(apply(), 0);
    EXPECT_EQ(running(), "bsd ietf local");
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

const std::string kOldPorts = receiverSections("udp", "5140", "tcp", "6514");
const std::string kNewPorts = receiverSections("udp", "1514", "tcp", "1515");
const std::string kNewBsdPort = portSection("syslog_server", "BSD log receiving of Ombrel", "udp", "1514");
const std::string kOldIetfPort = portSection("syslog_server_ietf", "IETF log receiving of Ombrel", "tcp", "6514");
const std::string kErrorRecord = "[0x0900 fake_platform.c:17]";

struct ServerFailure {
    std::string name;
    std::string call;
    int nth;
    Lines messages;
    std::string running;
    std::string ports;
    bool written = false;
    bool shared = false;  ///< both receivers are wanted on one port
};

class ServerUpdateFails : public SettingsUpdateTest, public ::testing::WithParamInterface<ServerFailure> {};

TEST_P(ServerUpdateFails, LeavesWhatWasDoneAndStartsTheNotifier) {
    const ServerFailure& failure = GetParam();
    wanted.server_port = 1514;
    wanted.server_ietf_port = failure.shared ? 1514 : 1515;
    if (failure.shared) wanted.server_ietf_trans = wanted.server_trans;
    platform.failCall(failure.call, failure.nth);
    EXPECT_EQ(SyslogServerConfSet(kServerPath, current, wanted), -6);
    EXPECT_EQ(platform.syslogLines, failure.messages);
    EXPECT_EQ(running(), failure.running);
    EXPECT_EQ(platform.read(kPorts), failure.ports);
    EXPECT_EQ(platform.exists(kServerPath), failure.written);
    EXPECT_TRUE(platform.services["syslog-notify"]);
    EXPECT_THAT(platform.events, IsEmpty());
    EXPECT_FALSE(platform.exists(kEnabledJobs));
}

std::string failedRemoval() {
    return "err utils:480 Fail to remove port section! (vesk_syslog.sc), retVal=4" + kErrorRecord;
}

std::string failedCreation() {
    return "err utils:443 Fail to create port section (vesk_syslog.sc)" + kErrorRecord;
}

INSTANTIATE_TEST_SUITE_P(
    Steps, ServerUpdateFails,
    ::testing::Values(ServerFailure{"StopBsd",
                                    "VLIBServicectlJobStop",
                                    1,
                                    {"err utils:532 fail to stop service (pkg-Ombrel-bsd)"},
                                    "bsd ietf local",
                                    kOldPorts},
                      ServerFailure{"StopIetf",
                                    "VLIBServicectlJobStop",
                                    2,
                                    {"err utils:536 fail to stop service (pkg-Ombrel-ietf)"},
                                    "ietf local",
                                    kOldPorts},
                      ServerFailure{"WithdrawBsd",
                                    "VLIBServiceConfSectionRemove",
                                    1,
                                    {failedRemoval(), "err utils:545 failed to unregister port resource (BSD)"},
                                    "local",
                                    kOldPorts},
                      ServerFailure{"WithdrawIetf",
                                    "VLIBServiceConfSectionRemove",
                                    2,
                                    {failedRemoval(), "err utils:549 failed to unregister port resource (IETF)"},
                                    "local",
                                    kOldIetfPort},
                      ServerFailure{"DeclareShared",
                                    "VLIBServiceConfSectionSet",
                                    1,
                                    {failedCreation(), "err utils:560 failed to register port resource (BSD)"},
                                    "local",
                                    "",
                                    false,
                                    true},
                      ServerFailure{"DeclareBsd",
                                    "VLIBServiceConfSectionSet",
                                    1,
                                    {failedCreation(), "err utils:569 failed to register port resource (BSD)"},
                                    "local",
                                    ""},
                      ServerFailure{"DeclareIetf",
                                    "VLIBServiceConfSectionSet",
                                    2,
                                    {failedCreation(), "err utils:578 failed to register port resource (IETF)"},
                                    "local",
                                    kNewBsdPort},
                      ServerFailure{"NoMemoryForTheKeys",
                                    "VLIBCSzHashAlloc",
                                    3,
                                    {"err utils:585 Failed to alloc memory"},
                                    "local",
                                    kNewPorts},
                      ServerFailure{"NoRoomForAKey", "VLIBCSzHashSetValue", 5, {}, "local", kNewPorts},
                      ServerFailure{"WriteTheKeys", "VLIBCFileSetKeys", 1, {}, "local", kNewPorts},
                      ServerFailure{"NoMemoryToSwitchBsd", "VLIBCSzHashAlloc", 4, {}, "local", kNewPorts, true},
                      ServerFailure{"StartBsd",
                                    "VLIBServicectlJobStart",
                                    1,
                                    {"err utils:367 Fail to restart service (pkg-Ombrel-bsd)"},
                                    "local",
                                    kNewPorts,
                                    true},
                      ServerFailure{"StartIetf",
                                    "VLIBServicectlJobStart",
                                    2,
                                    {"err utils:367 Fail to restart service (pkg-Ombrel-ietf)"},
                                    "bsd local",
                                    kNewPorts,
                                    true}),
    CaseName());

TEST_F(ServerUpdate, AFailureReloadsTheFirewallOnlyOnceThePortsAreDeclared) {
    wanted.server_port = 1514;
    platform.failCall("VLIBServiceConfSectionSet", 2);
    EXPECT_EQ(apply(), -6);
    EXPECT_EQ(platform.firewallReloads, 0);
    platform.failCall("VLIBCFileSetKeys");
    EXPECT_EQ(apply(), -6);
    EXPECT_EQ(platform.firewallReloads, 1);
}

TEST_F(ServerUpdate, ASwitchThatCannotBeRecordedEndsTheUpdateBeforeTheNextReceiver) {
    platform.jobs = {};
    readRecords();
    wanted.bsd_enable = 1;
    wanted.ietf_enable = 1;
    platform.failCall("VLIBCFileSetKeys", 2);
    EXPECT_EQ(apply(), -6);
    EXPECT_EQ(running(), "bsd");
    EXPECT_THAT(platform.events, IsEmpty());
    EXPECT_TRUE(platform.services["syslog-notify"]);
}

}  // namespace

}  // namespace ombrel::test
