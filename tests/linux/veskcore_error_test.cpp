// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

#include "linux/common/error_record.h"

namespace ombrel {
namespace {

TEST(ErrorRecord, BelongsToItsThread) {
    VLIBCErrSetEx(1, "mine", 1);
    std::thread([] {
        EXPECT_EQ(VLIBCErrGet(), 0);
        EXPECT_STREQ(VLIBCErrorGetFile(), "");
        VLIBCErrSetEx(2, "theirs", 2);
    }).join();
    EXPECT_EQ(VLIBCErrGet(), 1);
    EXPECT_STREQ(VLIBCErrorGetFile(), "mine");
}

TEST(ErrorRecord, CutsALongNameAndTakesItsOwnNameAndNull) {
    const std::string longName(5000, 'x');
    VLIBCErrSetEx(1, longName.c_str(), 1);
    const std::string kept = VLIBCErrorGetFile();
    EXPECT_EQ(kept, longName.substr(0, kept.size()));
    EXPECT_GE(kept.size(), 32U);
    VLIBCErrSetEx(2, VLIBCErrorGetFile() + 1, 2);
    EXPECT_EQ(VLIBCErrorGetFile(), kept.substr(1));
    VLIBCErrSetEx(3, nullptr, 3);
    EXPECT_STREQ(VLIBCErrorGetFile(), "");
}

TEST(ErrorRecord, FailKeepsErrnoAndNamesThePlace) {
    errno = ENOSPC;
    EXPECT_EQ(fail(kErrorTimeout), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(VLIBCErrGet(), kErrorTimeout);
    EXPECT_STREQ(VLIBCErrorGetFile(), "veskcore_error_test.cpp");
    EXPECT_GT(VLIBCErrorGetLine(), 0);
}

TEST(NullArguments, AreRefusedWithAnEntryInTheRecord) {
    VLIBSZHASH* hash = VLIBCSzHashAlloc(4);
    VLIBSZLIST* list = VLIBCSzListAlloc(4);
    VLIBSZLIST* noList = nullptr;
    char buffer[4];
    const int results[] = {
        VLIBCSzHashSetValue(nullptr, "k", "v"),
        VLIBCSzHashSetValue(hash, nullptr, "v"),
        VLIBCSzHashSetValue(hash, "k", nullptr),
        VLIBCSzListPush(&noList, "x"),
        VLIBCSzListPush(&list, nullptr),
        VLIBCFileExist(nullptr),
        VLIBCFileEnumDir("/", 0, &noList, 0x40),
        VLIBCFileGetKeyValue("/f", nullptr, buffer, 3, 0),
        VLIBCFileGetKeyValue("/f", "k", buffer, -1, 0),
        VLIBCFileSetKeys("/f", nullptr, 0, "%s=%s\n"),
        VLIBCFileSetKeys("/f", hash, 0, nullptr),
        VLIBCFileGetSection("/f", "s", nullptr),
        VLIBCFileAddSection("/f", nullptr, hash, "%s=%s\n"),
        VLIBCFileSetSection("/f", "s", nullptr, hash, "%s=%s\n"),
        VLIBCFileRemoveSection(nullptr, "s"),
        VLIBCFileEnumSection("/f", &noList),
        VLIBCFileGetSectionValue("/f", "s", "k", buffer, 0),
        VLIBCFileSetSectionValue("/f", "s", "k", nullptr),
        VLIBCExecv(nullptr, nullptr, 0),
    };
    for (const int result : results)
        EXPECT_LT(result, 0);
    EXPECT_EQ(VLIBCErrGet(), kErrorInvalidArgument);
    EXPECT_EQ(VLIBCSzHashGetValue(nullptr, "k"), nullptr);
    EXPECT_EQ(VLIBCSzListGet(nullptr, 0), nullptr);
    EXPECT_EQ(VLIBCSzHashAlloc(-1), nullptr);
    EXPECT_EQ(VLIBCSzListAlloc(-1), nullptr);
    VLIBCSzHashFree(hash);
    VLIBCSzListFree(list);
}

}  // namespace
}  // namespace ombrel
