// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fields of the settings record as people write them, and what a change of them makes of the record.
#include "tools/ombrel/settings_fields.h"

#include <functional>

#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"
#include "tools/ombrel/settings_change.h"

namespace ombrel::test::settings_fields {

namespace {

using ::testing::ElementsAre;
using Record = SettingsRecord;

std::optional<std::string> apply(const Lines& words, Record& record) {
    return applyWords(words, record);
}

class SettingsFields : public PlatformTest {
protected:
    SettingsFields() {
        platform.addFile(kServerConf, sampleText());
        platform.jobs = {{"pkg-Ombrel-bsd", 1}, {"pkg-Ombrel-localarchive", 7}};
        EXPECT_EQ(SyslogConfGet(kServerConf, record), 0);
    }
    Lines printed() {
        Lines lines;
        for (const SettingsField& field : settingsFields())
            lines.push_back(std::string(field.name) + "=" + field.print(record));
        return lines;
    }

    Record record;
};

TEST_F(SettingsFields, AreThoseOfTheRecordInItsOrderAndTheWordsOfTheFile) {
    EXPECT_THAT(
        printed(),
        ElementsAre("bsd_enable=1", "server_ssl=1", "server_port=5140", "server_trans=udp", "ietf_enable=0",
                    "server_ietf_ssl=1", "server_ietf_port=6514", "server_ietf_trans=tcp", "server_db_loc=logs",
                    "server_db_path=/volume1/logs/db", "server_ca_key=/etc/ssl/ombrel.key",
                    "server_ca_file=/etc/ssl/ombrel.crt", "arch_dest=/volume1/logs", "arch_time=86400",
                    "arch_size=64", "arch_count=5000", "arch_fmt=txt", "arch_compress=1", "arch_by_device=1",
                    "localarchive_enable=1", "arch_last_time=1600000000", "system_flush_line=100",
                    "system_flush_timeout=10", "arch_time_enable=1", "arch_count_enable=1"));
}

TEST_F(SettingsFields, WhatIsPrintedIsTakenBackAndIsNoChange) {
    const Lines before = printed();
    EXPECT_EQ(apply(before, record), std::nullopt);
    EXPECT_EQ(printed(), before);
    EXPECT_EQ(record.localarchive_enable, 7);
}

TEST_F(SettingsFields, EachChangesItsOwnFieldAlone) {
    for (const SettingsField& field : settingsFields()) {
        Record blank;
        const Lines before = printed();
        const std::string value = std::string(field.allowed).rfind("0 or 1", 0) == 0 ? "1" : field.print(record);
        ASSERT_TRUE(field.parse(value, blank)) << field.name;
        int changed = 0;
        for (const SettingsField& other : settingsFields())
            changed += other.print(blank) != other.print(Record{}) ? 1 : 0;
        EXPECT_EQ(changed, std::string(field.name) == "server_ietf_trans" ? 0 : 1) << field.name;  // tcp is blank
    }
}

struct ValueCase {
    std::string name;
    std::string key;
    std::string value;
    bool taken;
};

class SettingsValue : public PlatformTestWith<ValueCase> {};

TEST_P(SettingsValue, IsTakenOrRefusedWithTheRecordAsItWas) {
    const SettingsField* field = findSettingsField(GetParam().key);
    ASSERT_NE(field, nullptr);
    Record record;
    ASSERT_EQ(apply({"server_port=99", "server_ca_key=/old", "arch_dest=/old", "server_db_loc=old"}, record),
              std::nullopt);
    const std::string before = field->print(record);
    const auto wrong = apply({GetParam().key + "=" + GetParam().value}, record);
    if (GetParam().taken) {
        EXPECT_EQ(wrong, std::nullopt);
        EXPECT_EQ(field->print(record), GetParam().value);
    } else {
        EXPECT_EQ(wrong, GetParam().key + "=\"" + GetParam().value + "\": expected " + field->allowed);
        EXPECT_EQ(field->print(record), before);
    }
}

INSTANTIATE_TEST_SUITE_P(Ports, SettingsValue,
                         ::testing::Values(ValueCase{"Lowest", "server_port", "1", true},
                                           ValueCase{"Highest", "server_ietf_port", "65535", true},
                                           ValueCase{"Zero", "server_port", "0", false},
                                           ValueCase{"TooHigh", "server_ietf_port", "65536", false},
                                           ValueCase{"Negative", "server_port", "-514", false},
                                           ValueCase{"Sign", "server_port", "+514", false},
                                           ValueCase{"Letters", "server_port", "514x", false},
                                           ValueCase{"Blank", "server_port", " 514", false},
                                           ValueCase{"Hex", "server_port", "0x202", false},
                                           ValueCase{"Empty", "server_port", "", false},
                                           ValueCase{"BeyondInt", "server_port", "4294967810", false}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(Numbers, SettingsValue,
                         ::testing::Values(ValueCase{"Zero", "arch_size", "0", true},
                                           ValueCase{"LargestInt", "arch_count", "2147483647", true},
                                           ValueCase{"OneMore", "arch_count", "2147483648", false},
                                           ValueCase{"LargestTime", "arch_last_time", "2147483647", true},
                                           ValueCase{"LaterTime", "arch_last_time", "2147483648", false},
                                           ValueCase{"Negative", "arch_time", "-1", false},
                                           ValueCase{"Fraction", "system_flush_timeout", "1.5", false},
                                           ValueCase{"Empty", "system_flush_line", "", false}),
                         CaseName());

INSTANTIATE_TEST_SUITE_P(
    Words, SettingsValue,
    ::testing::Values(
        ValueCase{"On", "bsd_enable", "1", true}, ValueCase{"Off", "ietf_enable", "0", true},
        ValueCase{"Yes", "localarchive_enable", "yes", false}, ValueCase{"Two", "server_ssl", "2", false},
        ValueCase{"NoSwitch", "arch_compress", "", false}, ValueCase{"Udp", "server_trans", "udp", true},
        ValueCase{"Tcp", "server_ietf_trans", "tcp", true}, ValueCase{"UpperCase", "server_trans", "UDP", false},
        ValueCase{"Tls", "server_trans", "tls", false}, ValueCase{"Db", "arch_fmt", "db", true},
        ValueCase{"Xml", "arch_fmt", "xml", true}, ValueCase{"Txt", "arch_fmt", "txt", true},
        ValueCase{"Zip", "arch_fmt", "zip", false}, ValueCase{"NoFormat", "arch_fmt", "", false}),
    CaseName());

INSTANTIATE_TEST_SUITE_P(
    Texts, SettingsValue,
    ::testing::Values(
        ValueCase{"Path", "arch_dest", "/srv/my logs=x", true}, ValueCase{"NoPath", "server_ca_key", "", true},
        ValueCase{"Umlaut", "server_db_path", "/srv/\xc3\xa4", true},
        ValueCase{"Relative", "arch_dest", "logs", false},
        ValueCase{"LineBreak", "server_ca_file", "/a\nserver_port=\"1\"", false},
        ValueCase{"CarriageReturn", "server_ca_file", "/a\r", false},
        ValueCase{"Escape", "arch_dest", "/a\x1b[2J", false}, ValueCase{"Delete", "arch_dest", "/a\x7f", false},
        ValueCase{"Quote", "server_ca_key", "/a\"b", true}, ValueCase{"Backslash", "server_ca_key", "/a\\b", true},
        ValueCase{"Longest", "arch_dest", "/" + std::string(4094, 'x'), true},
        ValueCase{"TooLong", "arch_dest", "/" + std::string(4095, 'x'), false},
        ValueCase{"Share", "server_db_loc", "my share", true}, ValueCase{"NoShare", "server_db_loc", "", true},
        ValueCase{"ShareWithSlash", "server_db_loc", "../etc", false}),
    CaseName());

struct WordsCase {
    std::string name;
    Lines words;
    std::string complaint;
};

class SettingsWords : public PlatformTestWith<WordsCase> {};

TEST_P(SettingsWords, AreRefusedForTheFirstWrongOne) {
    Record record;
    EXPECT_EQ(apply(GetParam().words, record), GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(
    Words, SettingsWords,
    ::testing::Values(
        WordsCase{"Unknown", {"port=514"}, "no setting \"port\"; ombrel settings show lists them"},
        WordsCase{"OtherCase", {"SERVER_PORT=514"}, "no setting \"SERVER_PORT\"; ombrel settings show lists them"},
        WordsCase{"NoKey", {"=514"}, "no setting \"\"; ombrel settings show lists them"},
        WordsCase{"NoValue", {"server_port"}, "\"server_port\" is not KEY=VALUE"},
        WordsCase{"Empty", {""}, "\"\" is not KEY=VALUE"},
        WordsCase{"Twice", {"server_port=1", "server_ssl=0", "server_port=1"}, "server_port is given twice"},
        WordsCase{"BehindAGoodOne", {"server_port=1", "server_ssl=x"}, "server_ssl=\"x\": expected 0 or 1"}),
    CaseName());

struct TogetherCase {
    std::string name;
    Lines words;
    std::string complaint;  ///< empty: none
};

class SettingsTogether : public SettingsFields, public ::testing::WithParamInterface<TogetherCase> {};

TEST_P(SettingsTogether, HaveToLetTheEnabledReceiversStart) {
    ASSERT_EQ(apply({"bsd_enable=1", "server_trans=udp", "server_ssl=0", "server_port=514", "ietf_enable=1",
                     "server_ietf_trans=udp", "server_ietf_ssl=0", "server_ietf_port=514"},
                    record),
              std::nullopt);
    Record wanted = record;
    ASSERT_EQ(apply(GetParam().words, wanted), std::nullopt);
    EXPECT_EQ(whyNotTogether(record, wanted).value_or(""), GetParam().complaint);
}

const std::string kNeedsTcp = "server_ssl=1 needs server_trans=tcp: TLS runs over TCP";
const std::string kSamePort =
    "server_port and server_ietf_port are both 514 over TCP, where each receiver needs a port of its own";
const std::string kAlongAlone =
    "server_db_loc and server_db_path are kept only along with a change of the storage settings";

INSTANTIATE_TEST_SUITE_P(
    Changes, SettingsTogether,
    ::testing::Values(TogetherCase{"BothOnOneUdpPort", {"server_port=514"}, ""},
                      TogetherCase{"TlsOverUdp", {"server_ssl=1"}, kNeedsTcp},
                      TogetherCase{"TlsOverUdpOfAReceiverThatIsOff", {"server_ssl=1", "bsd_enable=0"}, ""},
                      TogetherCase{"TlsOverTcp", {"server_ssl=1", "server_trans=tcp"}, ""},
                      TogetherCase{"IetfTlsOverUdp",
                                   {"server_ietf_ssl=1"},
                                   "server_ietf_ssl=1 needs server_ietf_trans=tcp: TLS runs over TCP"},
                      TogetherCase{"TlsWithoutAKey",
                                   {"server_ssl=1", "server_trans=tcp", "server_ca_key="},
                                   "server_ssl=1 needs server_ca_key and server_ca_file"},
                      TogetherCase{"TlsWithoutACertificate",
                                   {"server_ietf_ssl=1", "server_ietf_trans=tcp", "server_ca_file="},
                                   "server_ietf_ssl=1 needs server_ca_key and server_ca_file"},
                      TogetherCase{"NoTlsAndNoKey", {"server_ca_key=", "server_ca_file="}, ""},
                      TogetherCase{"OneTcpPort", {"server_trans=tcp", "server_ietf_trans=tcp"}, kSamePort},
                      TogetherCase{"OneTcpPortOfOneReceiver",
                                   {"server_trans=tcp", "server_ietf_trans=tcp", "ietf_enable=0"},
                                   ""},
                      TogetherCase{"OnePortOfTwoTransports", {"server_trans=tcp"}, ""},
                      TogetherCase{"DatabaseFolderAlone", {"server_db_path=/other"}, kAlongAlone},
                      TogetherCase{"ShareWithAReceiver", {"server_db_loc=other", "server_port=515"}, kAlongAlone},
                      TogetherCase{"ShareWithTheStorage", {"server_db_loc=other", "arch_count=1"}, ""},
                      TogetherCase{"TheSameShare", {"server_db_loc=logs"}, ""}),
    CaseName());

struct FailureCase {
    std::string name;
    Lines wanted;
    Lines after;  ///< the changes that were found
    SettingsPart failed;
};

class FailedChange : public SettingsFields, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(FailedChange, IsToldFromWhatIsFoundAfterwards) {
    Record wanted = record;
    Record after = record;
    ASSERT_EQ(apply(GetParam().wanted, wanted), std::nullopt);
    ASSERT_EQ(apply(GetParam().after, after), std::nullopt);
    EXPECT_EQ(failedPart(record, wanted, after), GetParam().failed);
}

INSTANTIATE_TEST_SUITE_P(
    Parts, FailedChange,
    ::testing::Values(FailureCase{"OnlyReceivers", {"server_port=1"}, {"server_port=1"}, SettingsPart::kReceivers},
                      FailureCase{"OnlyStorage", {"arch_count=1"}, {"bsd_enable=0"}, SettingsPart::kStorage},
                      FailureCase{
                          "BothAndNothingDone", {"server_port=1", "arch_count=1"}, {}, SettingsPart::kReceivers},
                      FailureCase{"BothAndAReceiverDown",
                                  {"server_port=1", "arch_count=1"},
                                  {"server_port=1", "bsd_enable=0"},
                                  SettingsPart::kReceivers},
                      FailureCase{"BothAndTheReceiversDone",
                                  {"server_port=1", "arch_count=1"},
                                  {"server_port=1"},
                                  SettingsPart::kStorage},
                      FailureCase{"BothAndLocalArchivingDown",
                                  {"server_port=1", "arch_count=1"},
                                  {"server_port=1", "localarchive_enable=0"},
                                  SettingsPart::kStorage},
                      FailureCase{"BothWrittenAndAReceiverDown",
                                  {"server_port=1", "arch_count=1"},
                                  {"server_port=1", "arch_count=1", "bsd_enable=0"},
                                  SettingsPart::kStorage}),
    CaseName());

}  // namespace

}  // namespace ombrel::test::settings_fields
