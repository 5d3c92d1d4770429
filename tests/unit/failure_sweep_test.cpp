// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Settings, storage, archiving and post-processing, with each of their platform calls failing in turn.
#include <memory>

#include "ombrel/ombrel.h"
#include "platform/veskcore.h"
#include "tests/unit/archiver_test.h"
#include "tests/unit/failure_sweep.h"
#include "tests/unit/postprocessor_test.h"

namespace ombrel::test {

TEST_P(FailureSweep, EachFailingCallGivesTheExpectedResult) {
    sweep(false);
}

TEST_P(FailureSweep, AFailingCallThatHandsOutAnObjectLeaksNothing) {
    sweep(true);
}

namespace {

std::string joinedLines(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

// ---- settings and storage

void prepareSettings(FakePlatform& platform) {
    platform.addFile(kServerConf, sampleText());
}

std::string readSettings() {
    _SYSLOG_CONF_SETTINGS_tag record;
    return std::to_string(SyslogConfGet(kServerConf, record));
}

const Operation kReadSettings = {"ReadSettings",
                                 prepareSettings,
                                 readSettings,
                                 "0",
                                 {{"VLIBCFileGetKeyValue", "-1"},
                                  {"VLIBCFileGetKeyValue#4", "0"},
                                  {"VLIBCFileGetKeyValue#5", "0"},
                                  {"VLIBCFileGetKeyValue#6", "0"}}};

void prepareShares(FakePlatform& platform) {
    platform.addShare("one");
    platform.addShare("remote", ShareKind::kRemote);
}

/// The caller's list lives through the call whatever fails.
std::string listShares() {
    VLIBSZLIST* list = VLIBCSzListAlloc(4);
    const int result = SyslogAvailShareGet(&list);
    std::string text = std::to_string(result);
    for (int i = 0; list != nullptr && i < list->count; ++i)
        text += std::string(" ") + list->items[i];
    VLIBCSzListFree(list);
    return text;
}

const Operation kListShares = {"ListShares",
                               prepareShares,
                               listShares,
                               "0 one",
                               {{"VLIBCSzListAlloc", "-1"},
                                {"VESKShareEnum", "-1"},
                                {"VLIBCSzListGet#1", "0"},
                                {"VESKShareGet#1", "0"},
                                {"VESKGetFSType#1", "0"},
                                {"VESKFSIsImageFS#1", "0"},
                                {"VESKFSIsRemoteFS#1", "0"},
                                {"VLIBCSzListPush", "0"}}};

std::string testShare() {
    return SyslogIsShareValid("one") ? "true" : "false";
}

const Operation kTestShare = {"TestShare",
                              prepareShares,
                              testShare,
                              "true",
                              {{"VESKShareGet", "false"},
                               {"VESKGetFSType", "false"},
                               {"VESKFSIsImageFS", "false"},
                               {"VESKFSIsRemoteFS", "false"}}};

void prepareMove(FakePlatform& platform) {
    platform.addFile("/volume1/a.DB", "new");
    platform.addFile("/volume1/b.DB", "old");
}

std::string moveFile() {
    return std::to_string(SyslogDBFileMove("/volume1/a.DB", "/volume1/b.DB"));
}

const Operation kMoveFile = {"MoveFile",
                             prepareMove,
                             moveFile,
                             "0",
                             {{"stat64", "-1"},
                              {"statfs64", "-5"},
                              // Taken for missing, the destination is in the way of the copy.
                              {"VLIBCFileExist#2", "-1"},
                              {"VESKFileCopy", "-1"},
                              {"open", "-1"}}};

void prepareCopyingMove(FakePlatform& platform) {
    prepareMove(platform);
    platform.copyManner = CopyManner::kCopy;
}

const Operation kMoveFileByCopying = {"MoveFileByCopying",
                                      prepareCopyingMove,
                                      moveFile,
                                      "0",
                                      {{"stat64", "-1"},
                                       {"statfs64", "-5"},
                                       {"VLIBCFileExist#2", "-1"},
                                       {"VESKFileCopy", "-1"},
                                       {"open", "-1"},
                                       {"unlink", "-1"}}};

// ---- archiving

void prepareArchiving(FakePlatform& platform) {
    platform.addFile(kServerConf, sampleText());
    platform.addDatabase(hostDb("alpha"), march(6000));
    platform.addDatabase(kLocalDb, march(6000));
    platform.addFile("/volume1/logs/VESKSYSLOGDB__LOCALARCH_SYS");
    platform.now = 1600000000;
    platform.database(hostDb("alpha"))->start = platform.now;
}

/// The archiver of the settings file, whatever of it could be loaded, with the folder of the sample.
std::unique_ptr<LogArchiver> archiverByDevice() {
    auto archiver = std::make_unique<LogArchiver>();
    archiver->ByDevice = 1;
    archiver->strArchDest = kDest;
    return archiver;
}

std::string loadArchiver() {
    const LogArchiver archiver;
    return archiver.strArchDest + " " + std::to_string(archiver.ArchCount);
}

const Operation kLoadArchiver = {"LoadArchiver",
                                 prepareArchiving,
                                 loadArchiver,
                                 "/volume1/logs 5000",
                                 {{"VLIBCFileGetKeyValue", " 0"},
                                  {"VLIBCFileGetKeyValue#4", "/volume1/logs 5000"},
                                  {"VLIBCFileGetKeyValue#5", "/volume1/logs 5000"},
                                  {"VLIBCFileGetKeyValue#6", "/volume1/logs 5000"}}};

void prepareUnconfigured(FakePlatform& platform) {
    prepareArchiving(platform);
    platform.removeFile(kServerConf);
}

std::string findDatabases() {
    return joinedLines(paths(archiverByDevice()->CurrentWorkingDBGet()));
}

const std::string kBoth = joinedLines({kLocalDb, hostDb("alpha")});
const std::string kLocalAlone = joinedLines({kLocalDb});

const Operation kFindDatabases = {"FindDatabases",
                                  prepareUnconfigured,
                                  findDatabases,
                                  kBoth,
                                  {{"VLIBCFileExist#1", joinedLines({hostDb("alpha")})},
                                   {"VLIBCSzListAlloc", kLocalAlone},
                                   {"VLIBCFileEnumDir", kLocalAlone},
                                   {"VLIBCSzListGet", kLocalAlone},
                                   {"VLIBCFileExist#2", kLocalAlone}}};

std::string checkDatabases() {
    const auto archiver = archiverByDevice();
    archiver->ArchCount = 5000;
    archiver->ArchInterval = 86400;
    archiver->ArchSize = 64;
    return joinedLines(paths(archiver->ArchiveCheck()));
}

void prepareOneDue(FakePlatform& platform) {
    prepareUnconfigured(platform);
    platform.removeFile(kLocalDb);
}

const Operation kCheckDatabases = {"CheckDatabases",
                                   prepareOneDue,
                                   checkDatabases,
                                   joinedLines({hostDb("alpha")}),
                                   {{"VLIBCSzListAlloc", ""},
                                    {"VLIBCFileEnumDir", ""},
                                    {"VLIBCSzListGet", ""},
                                    {"VLIBCFileExist#2", ""},  // found
                                    {"VLIBCFileExist#3", ""},  // still there
                                    {"VLIBCFileExist#4", ""},  // counted
                                    {"DBCon#1", ""},
                                    {"DBInfoCntGet", ""}}};

std::string nameArchive() {
    const auto archiver = archiverByDevice();
    _SYSLOG_WORKING_DB_tag db{"alpha", "VESKSYSLOGDB_alpha.DB", hostDb("alpha")};
    return archiver->ArchDestGet(db);
}

const Operation kNameArchive = {"NameArchive",
                                prepareUnconfigured,
                                nameArchive,
                                "/volume1/logs/alpha/2024-03-03_2024-03-09.DB",
                                {{"VESKFSMkdirP", ""},
                                 {"DBCon", "/volume1/logs/alpha/1970-01-01_1970-01-01.DB"},
                                 {"DBInfoStartStrGet", "/volume1/logs/alpha/1970-01-01_2024-03-09.DB"},
                                 {"DBInfoEndStrGet", "/volume1/logs/alpha/2024-03-03_1970-01-01.DB"}}};

/// The result and the events.
std::string archiveOne() {
    const auto archiver = archiverByDevice();
    _SYSLOG_WORKING_DB_tag db{"local", "VESKSYSLOGDB__LOCALARCH.DB", kLocalDb};
    const int result = archiver->DoArchive(db, false);
    return std::to_string(result) + " " + joinedLines(FakePlatform::current().events);
}

const std::string kLocalArchive = "/volume1/logs/local/2024-03-03_2024-03-09.DB";
const std::string kNotArchived = "-1 failed " + kLocalArchive + "\n";

const Operation kArchiveOne = {"ArchiveOne",
                               prepareUnconfigured,
                               archiveOne,
                               "0 finished " + kLocalArchive + "\n",
                               {{"VESKFSMkdirP", "-1 failed \n"},
                                {"DBCon", "0 finished /volume1/logs/local/1970-01-01_1970-01-01.DB\n"},
                                {"DBInfoStartStrGet", "0 finished /volume1/logs/local/1970-01-01_2024-03-09.DB\n"},
                                {"DBInfoEndStrGet", "0 finished /volume1/logs/local/2024-03-03_1970-01-01.DB\n"},
                                {"stat64#1", kNotArchived},
                                {"statfs64#1", kNotArchived},
                                {"VESKFileCopy#1", kNotArchived},
                                {"open#1", kNotArchived},
                                {"open#2", kNotArchived},
                                {"VLIBServicectlRestart", kNotArchived},
                                {"VLIBCSzListAlloc", kNotArchived},
                                // An argument vector that is not whole starts nothing.
                                {"VLIBCSzListPush", kNotArchived}}};

std::string archiveAll() {
    const auto archiver = archiverByDevice();
    const int result = archiver->ArchiveAll();
    return std::to_string(result) + " " + std::to_string(FakePlatform::current().events.size());
}

void prepareOneWorking(FakePlatform& platform) {
    prepareUnconfigured(platform);
    platform.removeFile(hostDb("alpha"));
    platform.removeFile("/volume1/logs/VESKSYSLOGDB__LOCALARCH_SYS");
}

const Operation kArchiveAll = {"ArchiveAll",
                               prepareOneWorking,
                               archiveAll,
                               "0 1",
                               {{"VLIBCFileExist#1", "0 0"},  // found
                                {"VLIBCFileExist#3", "0 0"},  // counted; the second one is a host's
                                {"DBCon#1", "0 0"},
                                {"DBInfoCntGet", "0 0"},
                                {"VESKFSMkdirP", "-1 1"},
                                {"stat64", "-1 1"},
                                {"statfs64", "-1 1"},
                                {"VESKFileCopy", "-1 1"},
                                {"open", "-1 1"},
                                {"VLIBServicectlRestart", "-1 1"},
                                {"VLIBCSzListAlloc#2", "-1 1"},
                                {"VLIBCSzListPush", "-1 1"}}};

void prepareOldDatabase(FakePlatform& platform) {
    FakeDatabase& db = platform.addDatabase("/volume1/old.DB");
    db.version = 1;
    db.days = {"2019-04-30", "2019-05-02"};
}

std::string nameOldArchive() {
    std::string path = "/volume1/old.DB";
    return SyslogUpdaterArchNameGet(path);
}

const Operation kNameOldArchive = {"NameOldArchive",
                                   prepareOldDatabase,
                                   nameOldArchive,
                                   "2019-04-30_2019-05-02.DB",
                                   {{"VESKDBConnect", ""},
                                    {"VESKDBExecute", ""},
                                    {"VESKDBFetchRow", ""},
                                    {"VESKDBFetchField#1", "_2019-05-02.DB"},
                                    {"VESKDBFetchField#2", "2019-04-30_.DB"}}};

// ---- post-processing

void prepareArchive(FakePlatform& platform) {
    platform.addDatabase("/volume1/x.DB", textDatabase(2));
}

/// The result and the files that are left, temporary ones by their folder.
std::string postProcess() {
    PostProcessor processor;
    processor.ArchFmt = SYSLOG_ARCH_FMT_TXT;
    processor.Compress = 1;
    const int result = processor.PostProcess("/volume1/x.DB");
    std::string text = std::to_string(result);
    for (const std::string& file : FakePlatform::current().filesBelow("/volume1")) {
        text += file.rfind("/volume1/@tmp/", 0) == 0 ? " temporary" : " " + file.substr(file.rfind('/') + 1);
    }
    return text;
}

const Operation kPostProcess = {"PostProcess",
                                prepareArchive,
                                postProcess,
                                "0 x.ZIP",
                                {{"VESKFSMkdirP", "-1 x.DB"},
                                 {"mkstemp", "-1 x.DB"},
                                 {"fdopen", "-1 temporary x.DB"},
                                 {"SyslogDBSelectCount", "-1 temporary x.DB"},
                                 {"SyslogDBSelect", "-1 temporary x.DB"},
                                 {"VLIBCExec#1", "-1 temporary x.DB"},
                                 {"VLIBCExec#2", "-1 x.DB x.TXT"}}};

std::string addIndex() {
    PostProcessor processor;
    return std::to_string(processor.DBIndexAdd("/volume1/x.DB"));
}

const Operation kAddIndex = {"AddIndex", prepareArchive, addIndex, "0", {{"DBCon", "-1"}, {"DBExecute", "-1"}}};

INSTANTIATE_TEST_SUITE_P(Operations, FailureSweep,
                         ::testing::Values(kReadSettings, kListShares, kTestShare, kMoveFile, kMoveFileByCopying,
                                           kLoadArchiver, kFindDatabases, kCheckDatabases, kNameArchive,
                                           kArchiveOne, kArchiveAll, kNameOldArchive, kPostProcess, kAddIndex),
                         operationName);

}  // namespace

}  // namespace ombrel::test
