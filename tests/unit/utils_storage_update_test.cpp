// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Applying a change of the storage settings.
#include <functional>

#include "tests/unit/archiver_test.h"
#include "tests/unit/settings_update_test.h"

namespace ombrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Record = _SYSLOG_CONF_SETTINGS_tag;

const std::string kStoragePath = "/conf/server.conf";
const std::string kHostArchive = "/volume1/logs/alpha/2024-03-03_2024-03-09.DB";

class StorageUpdate : public SettingsUpdateTest {
protected:
    StorageUpdate() { platform.addFolder(kDest); }
    int apply() { return SyslogStorageConfSet(kStoragePath, current, wanted); }

    /// The calls of an operation, which are then forgotten.
    Lines callsOf(const std::function<void()>& operation) {
        platform.calls.clear();
        operation();
        Lines lines = platform.calls.lines();
        platform.calls.clear();
        return lines;
    }
    std::string question(const std::string& job) { return "VLIBServicectlIsJobRunning(\"" + job + "\", 0)"; }
    std::string restart(const std::string& job) { return "VLIBServicectlRestart(\"" + job + "\", 0)"; }
};

TEST_F(StorageUpdate, TakesItsStepsInThisOrder) {
    const Lines construction = callsOf([] { const LogArchiver archiver; });
    LogArchiver archiver;
    const Lines archiving = callsOf([&] { (void)archiver.ArchiveAll(); });
    ASSERT_FALSE(archiving.empty());
    wanted.arch_fmt = SYSLOG_ARCH_FMT_XML;
    wanted.server_db_loc = "other";
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(platform.calls.lines(),
              joined({construction,
                      {"VLIBServicectlJobStop(\"pkg-Ombrel-localarchive\")"},
                      archiving,
                      {"VLIBCSzHashAlloc(1024)"},
                      writing(kStoragePath, {{"server_db_loc", "other"},
                                             {"server_db_path", "/volume1/logs/db"},
                                             {"arch_time", "86400"},
                                             {"arch_size", "64"},
                                             {"arch_count", "5000"},
                                             {"arch_fmt", "xml"},
                                             {"arch_compress", "1"},
                                             {"arch_by_device", "1"},
                                             {"arch_dest", "/volume1/logs"},
                                             {"arch_last_time", "1600000000"},
                                             {"system_flush_line", "100"},
                                             {"system_flush_timeout", "10"},
                                             {"arch_time_enable", "1"},
                                             {"arch_count_enable", "1"}}),
                      {question("pkg-Ombrel-bsd"), restart("pkg-Ombrel-bsd"), question("pkg-Ombrel-ietf"),
                       restart("pkg-Ombrel-ietf"), question("pkg-Ombrel-custrule")},
                      startAgain("pkg-Ombrel-localarchive"),
                      {"VLIBCSzHashFree()"}}));
    EXPECT_THAT(platform.syslogLines, IsEmpty());
}

TEST_F(StorageUpdate, OfEqualRecordsLoadsTheArchiverAndDoesNothingElse) {
    const Lines construction = callsOf([] { const LogArchiver archiver; });
    EXPECT_EQ(apply(), 0);
    EXPECT_EQ(platform.calls.lines(), construction);
}

class StorageChange : public SettingsUpdateTest, public ::testing::WithParamInterface<Change> {};

TEST_P(StorageChange, IsOneOrNone) {
    GetParam().make(wanted);
    EXPECT_EQ(SyslogStorageConfSet(kStoragePath, current, wanted), 0);
    EXPECT_EQ(platform.calls.count("VLIBServicectlJobStop"), GetParam().applied ? 1 : 0);
    EXPECT_EQ(platform.exists(kStoragePath), GetParam().applied);
    EXPECT_EQ(platform.calls.count("VLIBServicectlRestart"), GetParam().applied ? 2 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, StorageChange,
    ::testing::Values(Change{"Age", [](Record& r) { r.arch_time = 1; }, true},
                      Change{"Size", [](Record& r) { r.arch_size = 1; }, true},
                      Change{"Count", [](Record& r) { r.arch_count = 1; }, true},
                      Change{"Format", [](Record& r) { r.arch_fmt = SYSLOG_ARCH_FMT_DB; }, true},
                      Change{"Compression", [](Record& r) { r.arch_compress = 0; }, true},
                      Change{"ByDevice", [](Record& r) { r.arch_by_device = 0; }, true},
                      Change{"LastTime", [](Record& r) { r.arch_last_time = 1; }, true},
                      Change{"FlushLine", [](Record& r) { r.system_flush_line = 1; }, true},
                      Change{"FlushTimeout", [](Record& r) { r.system_flush_timeout = 1; }, true},
                      Change{"AgeOff", [](Record& r) { r.arch_time_enable = 0; }, true},
                      Change{"CountOff", [](Record& r) { r.arch_count_enable = 0; }, true},
                      Change{"LocalArchivingOff", [](Record& r) { r.localarchive_enable = 0; }, true},
                      Change{"Destination", [](Record& r) { r.arch_dest = "/other"; }, true},
                      Change{"Share", [](Record& r) { r.server_db_loc = "other"; }, false},
                      Change{"DatabaseFolder", [](Record& r) { r.server_db_path = "/other"; }, false},
                      Change{"BsdPort", [](Record& r) { r.server_port = 1; }, false},
                      Change{"BsdOff", [](Record& r) { r.bsd_enable = 0; }, false},
                      Change{"TlsKey", [](Record& r) { r.server_ca_key = "/other"; }, false}),
    CaseName());

TEST_F(StorageUpdate, ArchivesUnderTheSettingsAsTheyStand) {
    platform.addDatabase(hostDb("alpha"), march());
    wanted.arch_dest = "/volume2/logs";
    wanted.arch_by_device = 0;
    wanted.arch_fmt = SYSLOG_ARCH_FMT_DB;
    ASSERT_EQ(apply(), 0);
    EXPECT_TRUE(platform.exists(kHostArchive));
    EXPECT_FALSE(platform.exists(hostDb("alpha")));
    EXPECT_THAT(platform.events, ElementsAre("finished " + kHostArchive));
    const Lines order = platform.calls.linesOf({"VESKFileCopy", "VLIBCFileSetKeys"});
    ASSERT_EQ(order.size(), 2U);
    EXPECT_EQ(order[0].rfind("VESKFileCopy(", 0), 0U);
}

TEST_F(StorageUpdate, ArchivesNothingWithoutACurrentDestination) {
    platform.addDatabase(hostDb("alpha"), march());
    current.arch_dest.clear();
    EXPECT_EQ(apply(), 0);
    EXPECT_TRUE(platform.exists(hostDb("alpha")));
    EXPECT_TRUE(platform.exists(kStoragePath));
}

TEST_F(StorageUpdate, RestartsOnlyTheJobsThatRun) {
    platform.jobs = {{"pkg-Ombrel-ietf", 1}, {"pkg-Ombrel-custrule", -1}, {"pkg-Ombrel-localarchive", 1}};
    wanted.arch_count = 1;
    ASSERT_EQ(apply(), 0);
    EXPECT_THAT(platform.calls.linesOf({"VLIBServicectlRestart"}),
                ElementsAre(restart("pkg-Ombrel-ietf"), restart("pkg-Ombrel-custrule")));
    EXPECT_EQ(running(), "ietf local rules");
}

TEST_F(StorageUpdate, TurnsLocalArchivingOff) {
    wanted.localarchive_enable = 0;
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(running(), "bsd ietf");
    EXPECT_EQ(platform.read(kEnabledJobs), "pkg-Ombrel-localarchive=\"no\"\n");
    EXPECT_THAT(platform.events, ElementsAre("stopped Local log archiving"));
}

TEST_F(StorageUpdate, TurnsLocalArchivingOn) {
    platform.jobs["pkg-Ombrel-localarchive"] = 0;
    readRecords();
    wanted.localarchive_enable = 1;
    ASSERT_EQ(apply(), 0);
    EXPECT_EQ(running(), "bsd ietf local");
    EXPECT_EQ(platform.read(kEnabledJobs), "pkg-Ombrel-localarchive=\"yes\"\n");
    EXPECT_THAT(platform.events, ElementsAre("started Local log archiving"));
}

struct Written {
    std::string name;
    std::function<void(Record&)> make;
    std::string key;
    std::string value;
};

class StorageKeys : public SettingsUpdateTest, public ::testing::WithParamInterface<Written> {
protected:
    /// The value in the file, between its quotes.
    std::string valueOf(const std::string& key) {
        const std::string text = "\n" + platform.read(kStoragePath).value_or("");
        const std::string start = "\n" + key + "=\"";
        const auto at = text.find(start);
        if (at == std::string::npos) return "<missing>";
        const auto from = at + start.size();
        return text.substr(from, text.find("\"\n", from) - from);
    }
};

TEST_P(StorageKeys, AreWrittenInTheWordsOfTheFile) {
    wanted.arch_time += 1;  // so that there is a change
    GetParam().make(wanted);
    ASSERT_EQ(SyslogStorageConfSet(kStoragePath, current, wanted), 0);
    EXPECT_EQ(valueOf(GetParam().key), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Values, StorageKeys,
    ::testing::Values(
        Written{"Db", [](Record& r) { r.arch_fmt = SYSLOG_ARCH_FMT_DB; }, "arch_fmt", "db"},
        Written{"Xml", [](Record& r) { r.arch_fmt = SYSLOG_ARCH_FMT_XML; }, "arch_fmt", "xml"},
        Written{"Txt", [](Record& r) { r.arch_fmt = SYSLOG_ARCH_FMT_TXT; }, "arch_fmt", "txt"},
        Written{"UnknownFormat", [](Record& r) { r.arch_fmt = static_cast<_SYSLOG_ARCH_FMT_tag>(9); }, "arch_fmt",
                "db"},
        Written{"On", [](Record& r) { r.arch_compress = 3; }, "arch_compress", "1"},
        Written{"Off", [](Record& r) { r.arch_by_device = 0; }, "arch_by_device", "0"},
        Written{"NegativeInt", [](Record& r) { r.arch_count = -1; }, "arch_count", "18446744073709551615"},
        Written{"NegativeTime", [](Record& r) { r.arch_last_time = -2; }, "arch_last_time",
                "18446744073709551614"},
        Written{"LargeTime", [](Record& r) { r.arch_last_time = 3'000'000'000; }, "arch_last_time", "3000000000"},
        Written{"Quotes", [](Record& r) { r.arch_dest = "/a \"b\""; }, "arch_dest", "/a \"b\""},
        Written{"Empty", [](Record& r) { r.arch_dest.clear(); }, "arch_dest", ""}),
    CaseName());

struct StorageFailure {
    std::string name;
    std::string call;
    int nth;
    Lines messages;
    std::string running;
    bool archived = true;
    bool written = true;
};

class StorageUpdateFails : public SettingsUpdateTest, public ::testing::WithParamInterface<StorageFailure> {
protected:
    StorageUpdateFails() {
        platform.addDatabase(hostDb("alpha"), march());
        platform.jobs["pkg-Ombrel-custrule"] = 1;
    }
};

TEST_P(StorageUpdateFails, LeavesWhatWasDone) {
    const StorageFailure& failure = GetParam();
    wanted.arch_count = 1;
    platform.failCall(failure.call, failure.nth);
    EXPECT_EQ(SyslogStorageConfSet(kStoragePath, current, wanted), -1);
    EXPECT_EQ(platform.syslogLines, failure.messages);
    EXPECT_EQ(running(), failure.running);
    EXPECT_EQ(platform.exists(kHostArchive), failure.archived);
    EXPECT_EQ(platform.exists(kStoragePath), failure.written);
    EXPECT_FALSE(platform.exists(kEnabledJobs));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, StorageUpdateFails,
    ::testing::Values(
        StorageFailure{"StopLocalArchiving",
                       "VLIBServicectlJobStop",
                       1,
                       {"err utils:645 fail to stop service (pkg-Ombrel-localarchive)"},
                       "bsd ietf local rules",
                       false,
                       false},
        StorageFailure{"Archive",
                       "VESKFileCopy",
                       1,
                       {"err utils:656 Fail to archive all working database"},
                       "bsd ietf rules",
                       false,
                       false},
        StorageFailure{"NoMemoryForTheKeys", "VLIBCSzHashAlloc", 1, {}, "bsd ietf rules", true, false},
        StorageFailure{"NoRoomForAKey", "VLIBCSzHashSetValue", 14, {}, "bsd ietf rules", true, false},
        StorageFailure{"WriteTheKeys", "VLIBCFileSetKeys", 1, {}, "bsd ietf rules", true, false},
        // The first restart is that of the log writer, behind the archiving.
        StorageFailure{"RestartBsd",
                       "VLIBServicectlRestart",
                       2,
                       {"err utils:685 Fail to restart service (pkg-Ombrel-bsd)"},
                       "bsd ietf rules"},
        StorageFailure{"RestartIetf",
                       "VLIBServicectlRestart",
                       3,
                       {"err utils:691 Fail to restart service (pkg-Ombrel-ietf)"},
                       "bsd ietf rules"},
        StorageFailure{"RestartRules",
                       "VLIBServicectlRestart",
                       4,
                       {"err utils:697 Fail to restart service (pkg-Ombrel-custrule)"},
                       "bsd ietf rules"},
        StorageFailure{"NoMemoryToSwitch", "VLIBCSzHashAlloc", 2, {}, "bsd ietf rules"},
        StorageFailure{"StartLocalArchiving",
                       "VLIBServicectlJobStart",
                       1,
                       {"err utils:367 Fail to restart service (pkg-Ombrel-localarchive)"},
                       "bsd ietf rules"}),
    CaseName());

TEST_F(StorageUpdate, AFailedArchivingIsTheLastStep) {
    platform.addDatabase(hostDb("alpha"), march());
    platform.addDatabase(hostDb("beta"), march());
    wanted.arch_count = 1;
    platform.failCall("VESKFileCopy", 1);
    EXPECT_EQ(apply(), -1);
    EXPECT_EQ(platform.calls.count("VESKFileCopy"), 2);  // the other database is archived all the same
    EXPECT_EQ(platform.calls.count("VLIBCSzHashAlloc"), 0);
}

}  // namespace

}  // namespace ombrel::test
