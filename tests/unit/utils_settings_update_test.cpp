// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Applying a whole settings record.
#include "tests/unit/archiver_test.h"
#include "tests/unit/settings_update_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kOther = "/conf/server.conf";

class WholeUpdate : public SettingsUpdateTest {
protected:
    WholeUpdate() { platform.addFolder(kDest); }
    std::string valueOf(const std::string& path, const std::string& key) {
        _SYSLOG_CONF_SETTINGS_tag record;
        const int result = SyslogConfGet(path, record);
        return result < 0             ? "<not read>"
               : key == "server_port" ? std::to_string(record.server_port)
                                      : std::to_string(record.arch_count);
    }
};

TEST_F(WholeUpdate, OfAnEmptyPathFailsBeforeAnythingIsAsked) {
    EXPECT_EQ(SyslogConfSet("", wanted), -2);
    EXPECT_THAT(platform.calls.lines(), IsEmpty());
}

TEST_F(WholeUpdate, OfTheSettingsAsTheyStandChangesNothing) {
    EXPECT_EQ(SyslogConfSet(kServerConf, wanted), 0);
    EXPECT_EQ(platform.read(kServerConf), sampleText());
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
    EXPECT_EQ(platform.calls.count("VLIBServiceStart"), 1);
    EXPECT_THAT(platform.events, IsEmpty());
}

TEST_F(WholeUpdate, AppliesTheReceiversAndThenTheStorage) {
    wanted.server_port = 1514;
    wanted.arch_count = 7;
    EXPECT_EQ(SyslogConfSet(kServerConf, wanted), 0);
    EXPECT_EQ(valueOf(kServerConf, "server_port"), "1514");
    EXPECT_EQ(valueOf(kServerConf, "arch_count"), "7");
    EXPECT_THAT(platform.calls.linesOf({"VLIBServicectlJobStop", "VLIBServiceStart"}),
                ElementsAre("VLIBServicectlJobStop(\"pkg-Ombrel-bsd\")",
                            "VLIBServicectlJobStop(\"pkg-Ombrel-ietf\")", "VLIBServiceStart(\"syslog-notify\", 1)",
                            "VLIBServicectlJobStop(\"pkg-Ombrel-localarchive\")"));
    EXPECT_EQ(running(), "bsd ietf local");
}

TEST_F(WholeUpdate, BringsEveryServiceToItsWantedState) {
    platform.jobs = {{"pkg-Ombrel-bsd", 1}};
    wanted.bsd_enable = 0;
    wanted.ietf_enable = 1;
    wanted.localarchive_enable = 1;
    EXPECT_EQ(SyslogConfSet(kServerConf, wanted), 0);
    EXPECT_EQ(running(), "ietf local");
    EXPECT_EQ(platform.read(kEnabledJobs),
              "pkg-Ombrel-bsd=\"no\"\npkg-Ombrel-ietf=\"yes\"\npkg-Ombrel-localarchive=\"yes\"\n");
    EXPECT_THAT(platform.events, ElementsAre("stopped Log receiving (BSD)", "started Log receiving (IETF)",
                                             "started Local log archiving"));
}

TEST_F(WholeUpdate, ComparesWithTheFixedFileAndWritesTheGivenOne) {
    platform.addFile(kOther, sampleText({{"server_port", "1"}, {"arch_count", "2"}}));
    wanted.server_port = 1514;
    EXPECT_EQ(SyslogConfSet(kOther, wanted), 0);
    EXPECT_EQ(valueOf(kOther, "server_port"), "1514");
    EXPECT_EQ(valueOf(kOther, "arch_count"), "2");
    EXPECT_EQ(platform.read(kServerConf), sampleText());
}

TEST_F(WholeUpdate, ChangesNothingWhenTheSettingsCannotBeRead) {
    platform.addFile(kServerConf, sampleText({}, {"system_flush_timeout"}));
    wanted.server_port = 1514;
    EXPECT_EQ(SyslogConfSet(kServerConf, wanted), -1);
    EXPECT_EQ(running(), "bsd ietf local");
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 0);
    EXPECT_EQ(platform.calls.count("VLIBServiceStart"), 0);
    EXPECT_EQ(platform.calls.count("VLIBCFileSetKeys"), 0);
}

TEST_F(WholeUpdate, AFailureOfTheReceiversLeavesTheStorageAlone) {
    wanted.server_port = 1514;
    wanted.arch_count = 7;
    platform.failCall("VLIBServicectlJobStop", 2);
    EXPECT_EQ(SyslogConfSet(kServerConf, wanted), -1);
    EXPECT_EQ(running(), "ietf local");
    EXPECT_EQ(platform.read(kServerConf), sampleText());
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), 2);
}

TEST_F(WholeUpdate, AFailureOfTheStorageKeepsTheReceiversChange) {
    wanted.server_port = 1514;
    wanted.arch_count = 7;
    platform.failCall("VLIBServicectlJobStop", 3);
    EXPECT_EQ(SyslogConfSet(kServerConf, wanted), -1);
    EXPECT_EQ(running(), "bsd ietf local");
    EXPECT_EQ(valueOf(kServerConf, "server_port"), "1514");
    EXPECT_EQ(valueOf(kServerConf, "arch_count"), "5000");
    EXPECT_THAT(platform.syslogLines, ElementsAre("err utils:645 fail to stop service (pkg-Ombrel-localarchive)"));
}

TEST_F(WholeUpdate, KeepsTheWantedRecord) {
    wanted.server_port = 1514;
    wanted.arch_count = 7;
    wanted.arch_last_time = 5;
    EXPECT_EQ(SyslogConfSet(kServerConf, wanted), 0);
    EXPECT_EQ(wanted.server_port, 1514);
    EXPECT_EQ(wanted.arch_count, 7);
    EXPECT_EQ(wanted.arch_last_time, 5);
}

}  // namespace

}  // namespace ombrel::test
