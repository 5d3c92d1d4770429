// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the upgrade program asks, with each of the platform calls failing in turn.
#include "ombrel/utils_updater.h"
#include "tests/unit/failure_sweep.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

namespace {

constexpr const char* kOld = "/volume1/old.DB";
constexpr const char* kNew = "/volume1/new.DB";

/// A result that a failing setting gives; which of them may be missing is the settings' own affair.
std::map<std::string, std::string> withSettings(const std::string& result,
                                                std::map<std::string, std::string> otherwise,
                                                const std::string& normally) {
    otherwise["VLIBCFileGetKeyValue"] = result;
    for (const char* optional : {"#4", "#5", "#6"})
        otherwise[std::string("VLIBCFileGetKeyValue") + optional] = normally;
    return otherwise;
}

// ---- folders

void prepareFolders(FakePlatform& platform) {
    platform.addFile(kServerConf, sampleText());
    platform.addShare("logs");
}

const Operation kServiceFolder = {"ServiceFolder", prepareFolders, SyslogUpdaterServiceFolderGet, "/volume1/logs",
                                  withSettings("", {{"VESKShareGet", ""}}, "/volume1/logs")};

const Operation kArchiveFolder = {"ArchiveFolder", prepareFolders, SyslogUpdaterArchiveFolderGet, "/volume1/logs",
                                  withSettings("", {}, "/volume1/logs")};

/// The folder is named also when it cannot be made.
const Operation kScratchFolder = {"ScratchFolder", prepareFolders, SyslogUpdaterVolTmpFolderGet, "/volume1/@tmp/",
                                  withSettings("", {}, "/volume1/@tmp/")};

// ---- progress

void prepareUpgrade(FakePlatform& platform) {
    FakeDatabase& old = platform.addDatabase(kOld);
    old.version = 1;
    old.days = {"2019-04-30", "2019-05-02"};
    platform.addDatabase(kNew).rows.resize(2);
}

std::string shownAnswer(bool answer) {
    return answer ? "true" : "false";
}

std::string countOld() {
    std::string path = kOld;
    return std::to_string(SyslogUpdaterOldDbTotalGet(path));
}

const Operation kCountOld = {"CountOld",
                             prepareUpgrade,
                             countOld,
                             "2",
                             {{"VESKDBConnect", "-1"},
                              {"VESKDBExecute", "-1"},
                              {"VESKDBFetchRow", "-1"},
                              {"VESKDBNumRows", "-2"},
                              {"VESKDBFetchField", "0"}}};

std::string countNew() {
    std::string path = kNew;
    return std::to_string(SyslogUpdaterUpdDbProgGet(path));
}

const Operation kCountNew = {"CountNew", prepareUpgrade, countNew, "2", {{"DBCon", "-1"}, {"DBInfoCntGet", "-1"}}};

std::string findNew() {
    std::string path = kNew;
    return shownAnswer(SyslogUpdaterUpdDbCheck(path));
}

const Operation kFindNew = {"FindNew", prepareUpgrade, findNew, "true", {{"VLIBCFileExist", "false"}}};

std::string isOldNew() {
    std::string path = kNew;
    return shownAnswer(SyslogUpdaterOldDbCheck(path));
}

/// What cannot be counted is taken for an old one.
const Operation kIsOld = {
    "IsOld", prepareUpgrade, isOldNew, "false", {{"DBCon", "true"}, {"DBInfoCntGet", "true"}}};

std::string isComplete() {
    std::string old = kOld;
    std::string fresh = kNew;
    return shownAnswer(SyslogUpdaterUpdCompete(old, fresh));
}

const Operation kIsComplete = {"IsComplete",
                               prepareUpgrade,
                               isComplete,
                               "true",
                               {{"VESKDBConnect", "false"},
                                {"VESKDBExecute", "false"},
                                {"VESKDBFetchRow", "false"},
                                {"VESKDBNumRows", "false"},
                                {"VESKDBFetchField", "false"},
                                {"DBCon", "false"},
                                {"DBInfoCntGet", "false"}}};

INSTANTIATE_TEST_SUITE_P(Upgrades, FailureSweep,
                         ::testing::Values(kServiceFolder, kArchiveFolder, kScratchFolder, kCountOld, kCountNew,
                                           kFindNew, kIsOld, kIsComplete),
                         operationName);

}  // namespace

}  // namespace ombrel::test
