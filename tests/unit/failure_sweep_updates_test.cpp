// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Job switches, port declarations and updates of the settings, with each of their platform calls failing in turn.
#include "ombrel/utils.h"
#include "src/service_jobs.h"
#include "tests/unit/archiver_test.h"
#include "tests/unit/failure_sweep.h"
#include "tests/unit/settings_update_test.h"

namespace ombrel::test {

namespace {

using Results = std::map<std::string, std::string>;

/// The result, the jobs that run (in the order bsd, ietf, localarchive, custrule) and whether the notifier does.
std::string state(int result) {
    FakePlatform& platform = FakePlatform::current();
    std::string text = std::to_string(result) + " ";
    for (const char* job : {kBsdJob, kIetfJob, kLocalArchiveJob, kCustomRuleJob}) {
        const auto found = platform.jobs.find(job);
        text += found != platform.jobs.end() && found->second != 0 ? "+" : "-";
    }
    return text + (platform.services["syslog-notify"] ? " notified" : " silent");
}

std::string restartJob() {
    std::string job = kBsdJob;
    return state(SyslogUpstartJobEnable(SYSLOG_SERVICE_RESTART, job.data()));
}

const Operation kRestartJob = {
    "RestartJob",
    prepareRunningMachine,
    restartJob,
    "0 +++- notified",
    {{"VLIBServicectlJobStop", "-1 +++- notified"}, {"VLIBServicectlJobStart", "-1 -++- notified"}}};

std::string switchJobOn() {
    const std::string text = state(SyslogServiceEnableSet(kCustomRuleJob, "Rules", false, true));
    return text + " " + std::to_string(FakePlatform::current().events.size());
}

const Operation kSwitchJobOn = {"SwitchJobOn",
                                prepareRunningMachine,
                                switchJobOn,
                                "0 ++++ notified 1",
                                {{"VLIBCSzHashAlloc", "-1 +++- notified 0"},
                                 {"VLIBServicectlJobStart", "-1 +++- notified 0"},
                                 {"VLIBCSzHashSetValue", "-1 ++++ notified 0"},
                                 {"VLIBCFileSetKeys", "-1 ++++ notified 0"}}};

std::string declaredPorts(int result) {
    const std::string text = FakePlatform::current().read(kPorts).value_or("");
    int sections = 0;
    for (auto at = text.find('['); at != std::string::npos; at = text.find('[', at + 1))
        ++sections;
    return std::to_string(result) + " " + std::to_string(sections);
}

std::string declarePort() {
    return declaredPorts(VESKOmbrelPortRegister("rule", 2514, SYSLOG_TRANSMISSION_TCP, "Rule"));
}

const Operation kDeclarePort = {"DeclarePort",
                                prepareRunningMachine,
                                declarePort,
                                "0 3",
                                {{"VESKServiceComposePortInfo", "-1 2"},
                                 {"VESKServiceComposeSectionInfo", "-1 2"},
                                 {"VLIBServiceConfSectionSet", "-1 2"}}};

std::string withdrawPort() {
    return declaredPorts(VESKOmbrelPortUnregister("syslog_server"));
}

const Operation kWithdrawPort = {"WithdrawPort",
                                 prepareRunningMachine,
                                 withdrawPort,
                                 "0 1",
                                 {{"VLIBCSzHashAlloc", "-1 2"},
                                  {"VLIBCFileExist", "0 2"},  // without a file there is nothing to withdraw
                                  {"VLIBServiceConfSectionRemove", "-1 2"}}};

_SYSLOG_CONF_SETTINGS_tag sampleRecord() {
    _SYSLOG_CONF_SETTINGS_tag record;
    record.bsd_enable = 1;
    record.ietf_enable = 1;
    record.localarchive_enable = 1;
    record.server_port = 5140;
    record.server_ietf_port = 6514;
    record.arch_dest = kDest;
    record.arch_by_device = 1;
    return record;
}

std::string updateServer() {
    auto current = sampleRecord();
    auto wanted = current;
    wanted.server_port = 1514;
    wanted.ietf_enable = 0;
    return state(SyslogServerConfSet(kServerConf, current, wanted));
}

const std::string kAllDown = "-6 --+- notified";

/// The notifier and the firewall are told, and need not answer. A file of ports taken for missing is written anew.
Results updateServerFails() {
    return {{"VLIBServiceStart", "0 +-+- silent"},
            {"VLIBServicectlJobStop#1", "-6 +++- notified"},
            {"VLIBServicectlJobStop#2", "-6 -++- notified"},
            {"VLIBCSzHashAlloc", kAllDown},
            {"VLIBCSzHashAlloc#5", "-6 +-+- notified"},  // to record the other receiver
            {"VLIBServiceConfSectionRemove", kAllDown},
            {"VESKServiceComposePortInfo", kAllDown},
            {"VESKServiceComposeSectionInfo", kAllDown},
            {"VLIBServiceConfSectionSet", kAllDown},
            {"VLIBCSzHashSetValue", kAllDown},
            {"VLIBCSzHashSetValue#9", "-6 +-+- notified"},
            {"VLIBCFileSetKeys#1", kAllDown},
            {"VLIBCFileSetKeys#2", "-6 +-+- notified"},
            {"VLIBServicectlJobStart", kAllDown}};
}

const Operation kUpdateServer = {"UpdateServer", prepareRunningMachine, updateServer, "0 +-+- notified",
                                 updateServerFails()};

/// Nothing is changed here but the notifier, which is started all the same.
std::string updateServerToTheSame() {
    auto current = sampleRecord();
    return state(SyslogServerConfSet(kServerConf, current, current));
}

const Operation kUpdateServerToTheSame = {
    "UpdateServerToTheSame", prepareRunningMachine, updateServerToTheSame, "0 +++- notified", {}};

void prepareStorage(FakePlatform& platform) {
    prepareRunningMachine(platform);
    platform.jobs[kCustomRuleJob] = 1;
    platform.addDatabase(kLocalDb, march());
}

std::string updateStorage() {
    auto current = sampleRecord();
    auto wanted = current;
    wanted.arch_count = 7;
    wanted.localarchive_enable = 0;
    const std::string text = state(SyslogStorageConfSet(kServerConf, current, wanted));
    return text + (FakePlatform::current().exists(kLocalDb) ? " kept" : " archived");
}

const std::string kStopped = "-1 ++-+ notified";

/// Where the archiver cannot read its settings or takes the database for missing or empty, there is nothing to
/// archive and the update goes on.
Results updateStorageFails() {
    Results results = {{"VLIBCFileExist#1", "0 ++-+ notified kept"},
                       {"VLIBCFileExist#2", "0 ++-+ notified kept"},
                       {"VLIBCFileGetKeyValue", "0 ++-+ notified kept"},
                       {"DBCon#1", "0 ++-+ notified kept"},
                       {"DBInfoCntGet", "0 ++-+ notified kept"},
                       {"VLIBServicectlJobStop", "-1 ++++ notified kept"},
                       {"VESKFSMkdirP", kStopped + " kept"},
                       {"stat64", kStopped + " kept"},
                       {"statfs64", kStopped + " kept"},
                       {"VLIBCFileExist#4", "0 ++-+ notified kept"},
                       {"open#1", kStopped + " kept"},
                       {"open#2", kStopped + " archived"},  // moved, but it cannot be told
                       {"VESKFileCopy", kStopped + " kept"},
                       {"VLIBServicectlRestart", kStopped + " archived"},
                       {"VLIBCSzListAlloc#2", kStopped + " archived"},
                       {"VLIBCSzListPush", kStopped + " archived"},
                       {"VLIBCSzHashAlloc", kStopped + " archived"},
                       {"VLIBCSzHashSetValue", kStopped + " archived"},
                       {"VLIBCFileSetKeys", kStopped + " archived"}};
    for (const char* key : {"4", "5", "6"})  // of the other receiver; it may be missing
        results[std::string("VLIBCFileGetKeyValue#") + key] = "0 ++-+ notified archived";
    return results;
}

const Operation kUpdateStorage = {"UpdateStorage", prepareStorage, updateStorage, "0 ++-+ notified archived",
                                  updateStorageFails()};

void prepareEverything(FakePlatform& platform) {
    prepareRunningMachine(platform);
    platform.addFolder(kDest);
}

/// Behind the state whether each half of the settings file is new.
std::string updateEverything() {
    auto wanted = sampleRecord();
    wanted.server_port = 1514;
    wanted.arch_count = 7;
    const std::string text = state(SyslogConfSet(kServerConf, wanted));
    const std::string file = FakePlatform::current().read(kServerConf).value_or("");
    const auto holds = [&](const char* line) { return file.find(line) != std::string::npos; };
    return text + (holds("server_port=\"1514\"") ? " new" : " old") +
           (holds("arch_count=\"7\"") ? " new" : " old");
}

const std::string kReceiversDown = "-1 --+- notified old old";
const std::string kStorageOld = "-1 ++-- notified new old";
const std::string kStorageNew = "-1 ++-- notified new new";

/// A job that cannot be asked is taken for stopped, and brought up like one that was off.
Results updateEverythingFails() {
    Results results = {{"VLIBCFileGetKeyValue", "-1 +++- notified old old"},
                       {"VLIBServiceStart", "0 +++- silent new new"},
                       {"VLIBServicectlJobStop#1", "-1 +++- notified old old"},
                       {"VLIBServicectlJobStop#2", "-1 -++- notified old old"},
                       {"VLIBServicectlJobStop#3", "-1 +++- notified new old"},
                       {"VLIBServiceConfSectionRemove", kReceiversDown},
                       {"VESKServiceComposePortInfo", kReceiversDown},
                       {"VESKServiceComposeSectionInfo", kReceiversDown},
                       {"VLIBServiceConfSectionSet", kReceiversDown},
                       {"VLIBCSzHashAlloc", kReceiversDown},
                       {"VLIBCSzHashAlloc#4", "-1 --+- notified new old"},
                       {"VLIBCSzHashAlloc#5", "-1 +-+- notified new old"},
                       {"VLIBCSzHashAlloc#6", kStorageOld},
                       {"VLIBCSzHashAlloc#7", kStorageNew},
                       {"VLIBCSzHashSetValue", kStorageOld},
                       {"VLIBCFileSetKeys#1", kReceiversDown},
                       {"VLIBCFileSetKeys#2", kStorageOld},
                       {"VLIBServicectlJobStart#1", "-1 --+- notified new old"},
                       {"VLIBServicectlJobStart#2", "-1 +-+- notified new old"},
                       {"VLIBServicectlJobStart#3", kStorageNew},
                       {"VLIBServicectlRestart", kStorageNew}};
    for (int i = 1; i <= 8; ++i)
        results["VLIBCSzHashSetValue#" + std::to_string(i)] = kReceiversDown;
    // Keys of the other receiver may be missing; behind the 23 of the record come those of the archiver.
    for (int i = 4; i <= 46; i = i == 6 ? 24 : i + 1)
        results["VLIBCFileGetKeyValue#" + std::to_string(i)] = "0 +++- notified new new";
    return results;
}

const Operation kUpdateEverything = {"UpdateEverything", prepareEverything, updateEverything,
                                     "0 +++- notified new new", updateEverythingFails()};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Updates, FailureSweep,
                         ::testing::Values(kRestartJob, kSwitchJobOn, kDeclarePort, kWithdrawPort, kUpdateServer,
                                           kUpdateServerToTheSame, kUpdateStorage, kUpdateEverything),
                         operationName);

}  // namespace ombrel::test
