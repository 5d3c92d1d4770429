// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The upgrade support when memory runs out in the middle: a failure, never an exception, and nothing is left open.
#include <functional>
#include <new>

#include "ombrel/utils_updater.h"
#include "tests/fake/platform_test.h"
#include "tests/unit/sample_settings.h"

namespace ombrel::test {

namespace {

struct OutOfMemory {
    std::string name;
    std::string call;  // in which there is none left
    std::function<std::string(std::string& path)> ask;
    std::string answer;
};

class UpgradeOutOfMemory : public PlatformTestWith<OutOfMemory> {
protected:
    void SetUp() override {
        platform.addFile(kServerConf, sampleText());
        platform.addShare("logs");
        FakeDatabase& old = platform.addDatabase("/volume1/old.DB");
        old.version = 1;
        old.days = {"2019-04-30"};
        platform.calls.onFailure = [] { throw std::bad_alloc(); };
    }
};

TEST_P(UpgradeOutOfMemory, IsAFailureAndNoException) {
    std::string path = "/volume1/old.DB";
    platform.failCall(GetParam().call);
    EXPECT_EQ(GetParam().ask(path), GetParam().answer);
    EXPECT_EQ(path, "/volume1/old.DB");
    EXPECT_EQ(platform.calls.count("DBDiscon"), platform.calls.count("DBHandler"));
    EXPECT_EQ(platform.calls.count("DBHandler"), platform.calls.count("~DBHandler"));
}

std::string serviceFolder(std::string& /*path*/) {
    return SyslogUpdaterServiceFolderGet();
}
std::string archiveFolder(std::string& /*path*/) {
    return SyslogUpdaterArchiveFolderGet();
}
std::string scratchFolder(std::string& /*path*/) {
    return SyslogUpdaterVolTmpFolderGet();
}
std::string total(std::string& path) {
    return std::to_string(SyslogUpdaterOldDbTotalGet(path));
}
std::string progress(std::string& path) {
    return std::to_string(SyslogUpdaterUpdDbProgGet(path));
}
std::string isCompleteAt(std::string& path) {
    return SyslogUpdaterUpdCompete(path, path) ? "yes" : "no";
}

INSTANTIATE_TEST_SUITE_P(Calls, UpgradeOutOfMemory,
                         ::testing::Values(OutOfMemory{"Settings", "VLIBCFileGetKeyValue", archiveFolder, ""},
                                           OutOfMemory{"Share", "VESKShareGet", serviceFolder, ""},
                                           OutOfMemory{"Scratch", "VESKFSMkdirP", scratchFolder, ""},
                                           OutOfMemory{"Name", "VESKDBFetchField", SyslogUpdaterArchNameGet, ""},
                                           OutOfMemory{"Connect", "VESKDBConnect", total, "-1"},
                                           OutOfMemory{"Statement", "VESKDBExecute", total, "-1"},
                                           OutOfMemory{"Row", "VESKDBFetchRow", total, "-1"},
                                           OutOfMemory{"Field", "VESKDBFetchField", total, "-1"},
                                           OutOfMemory{"Open", "DBCon", progress, "-1"},
                                           OutOfMemory{"Count", "DBInfoCntGet", progress, "-1"},
                                           OutOfMemory{"Complete", "VESKDBFetchRow", isCompleteAt, "no"}),
                         CaseName());

}  // namespace

}  // namespace ombrel::test
