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

}  // namespace
}  // namespace ombrel
