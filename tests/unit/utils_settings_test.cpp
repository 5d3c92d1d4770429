// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Reading the settings file into the record.
#include <functional>

#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Record = _SYSLOG_CONF_SETTINGS_tag;

const std::string kSettingsPath = "/conf/server.conf";

class SettingsRead : public PlatformTest {
protected:
    int get(const std::string& text) {
        platform.addFile(kSettingsPath, text);
        return SyslogConfGet(kSettingsPath, record);
    }
    std::string readCall(const std::string& key) {
        return "VLIBCFileGetKeyValue(\"" + kSettingsPath + "\", \"" + key + "\", 4095, 0)";
    }

    Record record;
};

TEST_F(SettingsRead, FillsEveryFieldFromItsOwnKey) {
    platform.jobs = {{"pkg-Ombrel-bsd", 1}, {"pkg-Ombrel-ietf", 1}, {"pkg-Ombrel-localarchive", 1}};
    ASSERT_EQ(get(sampleText()), 0);
    EXPECT_EQ(record.bsd_enable, 1);
    EXPECT_EQ(record.server_ssl, 1);
    EXPECT_EQ(record.server_port, 5140);
    EXPECT_EQ(record.server_trans, SYSLOG_TRANSMISSION_UDP);
    EXPECT_EQ(record.ietf_enable, 1);
    EXPECT_EQ(record.server_ietf_ssl, 1);
    EXPECT_EQ(record.server_ietf_port, 6514);
    EXPECT_EQ(record.server_ietf_trans, SYSLOG_TRANSMISSION_TCP);
    EXPECT_EQ(record.server_db_loc, "logs");
    EXPECT_EQ(record.server_db_path, "/volume1/logs/db");
    EXPECT_EQ(record.server_ca_key, "/etc/ssl/ombrel.key");
    EXPECT_EQ(record.server_ca_file, "/etc/ssl/ombrel.crt");
    EXPECT_EQ(record.arch_dest, "/volume1/logs");
    EXPECT_EQ(record.arch_time, 86400);
    EXPECT_EQ(record.arch_size, 64);
    EXPECT_EQ(record.arch_count, 5000);
    EXPECT_EQ(record.arch_fmt, SYSLOG_ARCH_FMT_TXT);
    EXPECT_EQ(record.arch_compress, 1);
    EXPECT_EQ(record.arch_by_device, 1);
    EXPECT_EQ(record.localarchive_enable, 1);
    EXPECT_EQ(record.arch_last_time, 1600000000);
    EXPECT_EQ(record.system_flush_line, 100);
    EXPECT_EQ(record.system_flush_timeout, 10);
    EXPECT_EQ(record.arch_time_enable, 1);
    EXPECT_EQ(record.arch_count_enable, 1);
}

TEST_F(SettingsRead, AsksForTheJobsFirstAndForTheKeysInTheirOrder) {
    ASSERT_EQ(get(sampleText()), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBServicectlIsJobRunning(\"pkg-Ombrel-bsd\", 0)",
                            "VLIBServicectlIsJobRunning(\"pkg-Ombrel-ietf\", 0)", readCall("server_port"),
                            readCall("server_trans"), readCall("server_ssl"), readCall("server_ietf_port"),
                            readCall("server_ietf_trans"), readCall("server_ietf_ssl"), readCall("server_db_loc"),
                            readCall("server_db_path"), readCall("server_ca_key"), readCall("server_ca_file"),
                            readCall("arch_dest"), readCall("arch_time"), readCall("arch_time_enable"),
                            readCall("arch_size"), readCall("arch_count"), readCall("arch_count_enable"),
                            readCall("arch_fmt"), readCall("arch_compress"), readCall("arch_by_device"),
                            readCall("arch_dest"), readCall("arch_last_time"), readCall("system_flush_line"),
                            readCall("system_flush_timeout"),
                            "VLIBServicectlIsJobRunning(\"pkg-Ombrel-localarchive\", 0)"));
}

TEST_F(SettingsRead, ReadsTheReceiverFieldsWithoutTheStorageKeys) {
    platform.addFile(kSettingsPath, sampleText({}, {"server_ietf_port", "server_ietf_trans", "server_ietf_ssl",
                                                    "arch_time", "arch_fmt", "system_flush_line"}));
    ASSERT_EQ(SyslogServerConfGet(kSettingsPath, record), 0);
    EXPECT_EQ(record.server_ietf_port, 514);
    EXPECT_EQ(record.server_ietf_trans, SYSLOG_TRANSMISSION_UDP);
    EXPECT_EQ(record.server_ietf_ssl, 0);
    EXPECT_EQ(record.arch_dest, "/volume1/logs");
}

TEST_F(SettingsRead, ReadsTheStorageFieldsWithoutTheReceiverKeys) {
    platform.addFile(kSettingsPath, sampleText({}, {"server_port", "server_db_loc", "server_ca_file"}));
    record.server_port = 77;
    ASSERT_EQ(SyslogStorageConfGet(kSettingsPath, record), 0);
    EXPECT_EQ(record.arch_count, 5000);
    EXPECT_EQ(record.server_port, 77);
}

TEST_F(SettingsRead, TakesTheJobStatesAsThePlatformTellsThem) {
    platform.jobs = {{"pkg-Ombrel-bsd", 7}, {"pkg-Ombrel-ietf", -3}, {"pkg-Ombrel-localarchive", 2}};
    ASSERT_EQ(get(sampleText({{"bsd_enable", "0"}})), 0);
    EXPECT_EQ(record.bsd_enable, 7);
    EXPECT_EQ(record.ietf_enable, -3);
    EXPECT_EQ(record.localarchive_enable, 2);
}

TEST_F(SettingsRead, NoKeyTurnsAStoppedReceiverOn) {
    record.bsd_enable = 1;
    record.ietf_enable = 1;
    ASSERT_EQ(get(sampleText({{"bsd_enable", "1"}, {"ietf_enable", "1"}, {"localarchive_enable", "1"}})), 0);
    EXPECT_EQ(record.bsd_enable, 0);
    EXPECT_EQ(record.ietf_enable, 0);
    EXPECT_EQ(record.localarchive_enable, 0);
}

TEST_F(SettingsRead, TellsTheReceiverStatesAlsoWithoutAFile) {
    platform.jobs = {{"pkg-Ombrel-bsd", 1}, {"pkg-Ombrel-ietf", 1}};
    EXPECT_EQ(SyslogConfGet("/conf/none", record), -1);
    EXPECT_EQ(record.bsd_enable, 1);
    EXPECT_EQ(record.ietf_enable, 1);
    EXPECT_EQ(platform.calls.count("VLIBCFileGetKeyValue"), 1);
}

TEST_F(SettingsRead, LeavesTheArchivingStateWhenTheLastKeyIsMissing) {
    platform.jobs["pkg-Ombrel-localarchive"] = 1;
    record.localarchive_enable = 5;
    EXPECT_EQ(get(sampleText({}, {"system_flush_timeout"})), -1);
    EXPECT_EQ(record.server_port, 5140);
    EXPECT_EQ(record.system_flush_line, 100);
    EXPECT_EQ(record.localarchive_enable, 5);
}

TEST_F(SettingsRead, ReadsNoStorageKeyAfterAReceiverKeyIsMissing) {
    record.arch_count = 3;
    record.arch_dest = "before";
    record.server_ca_key = "before";
    record.server_ca_file = "before";
    EXPECT_EQ(get(sampleText({}, {"server_ca_key"})), -1);
    EXPECT_EQ(platform.calls.lines().back(), readCall("server_ca_key"));
    EXPECT_EQ(record.server_db_path, "/volume1/logs/db");
    EXPECT_EQ(record.server_ca_key, "");
    EXPECT_EQ(record.server_ca_file, "before");
    EXPECT_EQ(record.arch_count, 3);
    EXPECT_EQ(record.arch_dest, "before");
}

TEST_F(SettingsRead, ClearsTheLastArchivingTimeThatCannotBeRead) {
    record.arch_last_time = 99;
    EXPECT_EQ(get(sampleText({}, {"arch_last_time"})), -1);
    EXPECT_EQ(record.arch_last_time, 0);
}

TEST_F(SettingsRead, CutsAValueAt4095Characters) {
    ASSERT_EQ(get(sampleText({{"server_db_path", std::string(5000, 'p')}, {"arch_dest", std::string(4095, 'a')}})),
              0);
    EXPECT_EQ(record.server_db_path, std::string(4095, 'p'));
    EXPECT_EQ(record.arch_dest, std::string(4095, 'a'));
}

TEST_F(SettingsRead, TakesTextsVerbatim) {
    ASSERT_EQ(get(sampleText({{"server_db_loc", ""}, {"server_db_path", " /a b/\xC3\xA9 "}, {"arch_dest", "%s"}})),
              0);
    EXPECT_EQ(record.server_db_loc, "");
    EXPECT_EQ(record.server_db_path, " /a b/\xC3\xA9 ");
    EXPECT_EQ(record.arch_dest, "%s");
}

TEST_F(SettingsRead, ReplacesWhatARecordHeldBefore) {
    ASSERT_EQ(get(sampleText()), 0);
    ASSERT_EQ(get(sampleText({{"server_ssl", "0"}, {"arch_dest", "/d"}, {"arch_fmt", "db"}},
                             {"server_ietf_ssl", "server_ietf_port", "server_ietf_trans"})),
              0);
    EXPECT_EQ(record.server_ssl, 0);
    EXPECT_EQ(record.server_ietf_ssl, 0);
    EXPECT_EQ(record.server_ietf_port, 514);
    EXPECT_EQ(record.server_ietf_trans, SYSLOG_TRANSMISSION_UDP);
    EXPECT_EQ(record.arch_dest, "/d");
    EXPECT_EQ(record.arch_fmt, SYSLOG_ARCH_FMT_DB);
}

TEST_F(SettingsRead, LogsNothingWhenItFails) {
    EXPECT_EQ(SyslogConfGet("/conf/none", record), -1);
    EXPECT_EQ(SyslogStorageConfGet("/conf/none", record), -1);
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    EXPECT_THAT(platform.messages, IsEmpty());
}

struct RequiredKey {
    std::string name;
    bool server;  ///< read by the receiver half
    bool storage;
};

class RequiredKeyMissing : public PlatformTestWith<RequiredKey> {};

TEST_P(RequiredKeyMissing, FailsTheHalvesThatNeedIt) {
    platform.addFile(kSettingsPath, sampleText({}, {GetParam().name}));
    Record record;
    EXPECT_EQ(SyslogServerConfGet(kSettingsPath, record), GetParam().server ? -1 : 0);
    EXPECT_EQ(SyslogStorageConfGet(kSettingsPath, record), GetParam().storage ? -1 : 0);
    EXPECT_EQ(SyslogConfGet(kSettingsPath, record), -1);
}

TEST_P(RequiredKeyMissing, IsNoMatterWhenItsValueIsEmpty) {
    platform.addFile(kSettingsPath, sampleText({{GetParam().name, ""}}));
    Record record;
    EXPECT_EQ(SyslogConfGet(kSettingsPath, record), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, RequiredKeyMissing,
    ::testing::Values(RequiredKey{"server_port", true, false}, RequiredKey{"server_trans", true, false},
                      RequiredKey{"server_ssl", true, false}, RequiredKey{"server_db_loc", true, false},
                      RequiredKey{"server_db_path", true, false}, RequiredKey{"server_ca_key", true, false},
                      RequiredKey{"server_ca_file", true, false}, RequiredKey{"arch_dest", true, true},
                      RequiredKey{"arch_time", false, true}, RequiredKey{"arch_time_enable", false, true},
                      RequiredKey{"arch_size", false, true}, RequiredKey{"arch_count", false, true},
                      RequiredKey{"arch_count_enable", false, true}, RequiredKey{"arch_fmt", false, true},
                      RequiredKey{"arch_compress", false, true}, RequiredKey{"arch_by_device", false, true},
                      RequiredKey{"arch_last_time", false, true}, RequiredKey{"system_flush_line", false, true},
                      RequiredKey{"system_flush_timeout", false, true}),
    CaseName());

struct ParsedValue {
    std::string name;
    std::string key;
    std::string text;
    std::function<long long(const Record&)> field;
    long long expected;
};

class SettingsParse : public PlatformTestWith<ParsedValue> {};

TEST_P(SettingsParse, GivesTheExpectedNumber) {
    platform.addFile(kSettingsPath, sampleText({{GetParam().key, GetParam().text}}));
    Record record;
    ASSERT_EQ(SyslogConfGet(kSettingsPath, record), 0);
    EXPECT_EQ(GetParam().field(record), GetParam().expected);
}

const auto kPort = [](const Record& r) { return r.server_port; };
const auto kIetfPort = [](const Record& r) { return r.server_ietf_port; };
const auto kSsl = [](const Record& r) { return r.server_ssl; };
const auto kIetfSsl = [](const Record& r) { return r.server_ietf_ssl; };
const auto kTrans = [](const Record& r) { return r.server_trans; };
const auto kIetfTrans = [](const Record& r) { return r.server_ietf_trans; };
const auto kFormat = [](const Record& r) { return static_cast<long long>(r.arch_fmt); };
const auto kLast = [](const Record& r) { return r.arch_last_time; };
const auto kSize = [](const Record& r) { return r.arch_size; };
const auto kTime = [](const Record& r) { return r.arch_time; };
const auto kArchiveCount = [](const Record& r) { return r.arch_count; };
const auto kFlushLine = [](const Record& r) { return r.system_flush_line; };

INSTANTIATE_TEST_SUITE_P(Numbers, SettingsParse,
                         ::testing::Values(ParsedValue{"PlainPort", "server_port", "514", kPort, 514},
                                           ParsedValue{"Letters", "server_port", "abc", kPort, 0},
                                           ParsedValue{"LeadingDigits", "server_port", "12abc", kPort, 12},
                                           ParsedValue{"Empty", "server_port", "", kPort, 0},
                                           ParsedValue{"NoRangeCheck", "server_port", "70000", kPort, 70000},
                                           ParsedValue{"LeadingZeros", "server_ietf_port", "0017", kIetfPort, 17},
                                           ParsedValue{"IetfLetters", "server_ietf_port", "x", kIetfPort, 0},
                                           ParsedValue{"Negative", "arch_count", "-5", kArchiveCount, -5},
                                           ParsedValue{"LargestInt", "arch_size", "2147483647", kSize, 2147483647},
                                           ParsedValue{"HexIsZero", "arch_time", "0x10", kTime, 0},
                                           ParsedValue{"FractionDropped", "system_flush_line", "3.9", kFlushLine,
                                                       3}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(
    LastArchiving, SettingsParse,
    ::testing::Values(ParsedValue{"Never", "arch_last_time", "0", kLast, 0},
                      ParsedValue{"TwoToThe32IsZero", "arch_last_time", "4294967296", kLast, 0},
                      ParsedValue{"ThreeThousandMillionIsNegative", "arch_last_time", "3000000000", kLast,
                                  3000000000LL - 4294967296LL},
                      ParsedValue{"LargestInt", "arch_last_time", "2147483647", kLast, 2147483647},
                      ParsedValue{"OneMoreIsTheSmallestInt", "arch_last_time", "2147483648", kLast, -2147483648LL},
                      ParsedValue{"Letters", "arch_last_time", "never", kLast, 0}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(Switches, SettingsParse,
                         ::testing::Values(ParsedValue{"One", "server_ssl", "1", kSsl, 1},
                                           ParsedValue{"Zero", "server_ssl", "0", kSsl, 0},
                                           ParsedValue{"Yes", "server_ssl", "yes", kSsl, 0},
                                           ParsedValue{"True", "server_ssl", "true", kSsl, 0},
                                           ParsedValue{"ZeroOne", "server_ssl", "01", kSsl, 0},
                                           ParsedValue{"OneBlank", "server_ssl", "1 ", kSsl, 0},
                                           ParsedValue{"Empty", "server_ssl", "", kSsl, 0},
                                           ParsedValue{"Eleven", "server_ietf_ssl", "11", kIetfSsl, 0},
                                           ParsedValue{"IetfOne", "server_ietf_ssl", "1", kIetfSsl, 1}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(Transports, SettingsParse,
                         ::testing::Values(ParsedValue{"Udp", "server_trans", "udp", kTrans, 1},
                                           ParsedValue{"Tcp", "server_trans", "tcp", kTrans, 0},
                                           ParsedValue{"UpperCase", "server_trans", "UDP", kTrans, 0},
                                           ParsedValue{"UdpBlank", "server_trans", "udp ", kTrans, 0},
                                           ParsedValue{"Empty", "server_trans", "", kTrans, 0},
                                           ParsedValue{"IetfUdp", "server_ietf_trans", "udp", kIetfTrans, 1},
                                           ParsedValue{"IetfUpperCase", "server_ietf_trans", "UDP", kIetfTrans, 0},
                                           ParsedValue{"IetfEmpty", "server_ietf_trans", "", kIetfTrans, 0}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(Formats, SettingsParse,
                         ::testing::Values(ParsedValue{"Db", "arch_fmt", "db", kFormat, 0},
                                           ParsedValue{"Xml", "arch_fmt", "xml", kFormat, 1},
                                           ParsedValue{"Txt", "arch_fmt", "txt", kFormat, 2},
                                           ParsedValue{"Zip", "arch_fmt", "zip", kFormat, 0},
                                           ParsedValue{"UpperCase", "arch_fmt", "TXT", kFormat, 0},
                                           ParsedValue{"TxtBlank", "arch_fmt", "txt ", kFormat, 0},
                                           ParsedValue{"Digit", "arch_fmt", "2", kFormat, 0},
                                           ParsedValue{"Empty", "arch_fmt", "", kFormat, 0}),
                         CaseName());

class StorageSwitches : public PlatformTestWith<RequiredKey> {};

TEST_P(StorageSwitches, AreOnForTheExactTextOneAlone) {
    const auto field = [](const Record& r) {
        if (GetParam().name == "arch_time_enable") return r.arch_time_enable;
        if (GetParam().name == "arch_count_enable") return r.arch_count_enable;
        return GetParam().name == "arch_compress" ? r.arch_compress : r.arch_by_device;
    };
    for (const std::string text : {"0", "yes", "true", "01", "1 ", ""}) {
        platform.addFile(kSettingsPath, sampleText({{GetParam().name, text}}));
        Record record;
        ASSERT_EQ(SyslogStorageConfGet(kSettingsPath, record), 0);
        EXPECT_EQ(field(record), 0) << "'" << text << "'";
    }
    platform.addFile(kSettingsPath, sampleText({{GetParam().name, "1"}}));
    Record record;
    ASSERT_EQ(SyslogStorageConfGet(kSettingsPath, record), 0);
    EXPECT_EQ(field(record), 1);
}

INSTANTIATE_TEST_SUITE_P(Keys, StorageSwitches,
                         ::testing::Values(RequiredKey{"arch_time_enable", false, true},
                                           RequiredKey{"arch_count_enable", false, true},
                                           RequiredKey{"arch_compress", false, true},
                                           RequiredKey{"arch_by_device", false, true}),
                         CaseName());

class SettingsWrite : public PlatformTest {
protected:
    void SetUp() override {
        keys = VLIBCSzHashAlloc(1024);
        (void)VLIBCSzHashSetValue(keys, "arch_count", "7");
        (void)VLIBCSzHashSetValue(keys, "new_key", "a \"b\" c");
    }
    void TearDown() override {
        VLIBCSzHashFree(keys);
        PlatformTest::TearDown();
    }

    VLIBSZHASH* keys = nullptr;
    Record record;
};

TEST_F(SettingsWrite, MergesThePairsAndKeepsEveryOtherLine) {
    platform.addFile(kSettingsPath, "# note\narch_time=\"1\"\narch_count=\"5\"\n\nother=\"x\"\n");
    EXPECT_EQ(SyslogFileKeySet(keys, kSettingsPath, record), 0);
    EXPECT_EQ(platform.read(kSettingsPath),
              "# note\narch_time=\"1\"\narch_count=\"7\"\n\nother=\"x\"\nnew_key=\"a \"b\" c\"\n");
}

TEST_F(SettingsWrite, UsesOneCallWithTheLineFormat) {
    platform.calls.clear();
    EXPECT_EQ(SyslogFileKeySet(keys, kSettingsPath, record), 0);
    EXPECT_THAT(platform.calls.lines(),
                ElementsAre("VLIBCFileSetKeys(\"/conf/server.conf\", {arch_count=7, new_key=a \"b\" c}, 0, "
                            "\"%s=\\\"%s\\\"\\n\")"));
}

TEST_F(SettingsWrite, FailsWithTheWriterAndSaysNothing) {
    platform.failCall("VLIBCFileSetKeys");
    EXPECT_EQ(SyslogFileKeySet(keys, kSettingsPath, record), -1);
    EXPECT_FALSE(platform.exists(kSettingsPath));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
    EXPECT_THAT(platform.messages, IsEmpty());
}

TEST_F(SettingsWrite, WhatIsWrittenReadsBack) {
    platform.addFile(kSettingsPath, sampleText());
    ASSERT_EQ(SyslogFileKeySet(keys, kSettingsPath, record), 0);
    ASSERT_EQ(SyslogConfGet(kSettingsPath, record), 0);
    EXPECT_EQ(record.arch_count, 7);
    EXPECT_EQ(record.arch_time, 86400);
}

}  // namespace

}  // namespace ombrel::test
