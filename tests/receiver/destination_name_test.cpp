// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/message/destination_name.h"

#include <gtest/gtest.h>

namespace ombrel {
namespace {

TEST(DestinationName, KeepsLinesWholeBehindTheRawMark) {
    for (const char* const name : {"custrule-raw-udp", "custrule-raw-tcp", "custrule-raw-tls", "bsd-raw-"})
        EXPECT_EQ(lineKindOf(name), LineKind::kWhole) << name;
}

TEST(DestinationName, KnowsWhatThisMachineLogs) {
    for (const char* const name : {"local-journal", "local-socket", "local-kernel", "local-", "local-raw-x"})
        EXPECT_EQ(lineKindOf(name), LineKind::kOfThisMachine) << name;
}

TEST(DestinationName, LeavesAllOthersToTheParser) {
    for (const char* const name : {"", "-", "raw", "raw-", "raw-udp", "local", "localhost", "bsd-tcp",
                                   "bsd-local-x", "rawbsd-udp", "custrule-raw", "custrule-rawish",
                                   "custrule-RAW-tcp", "custrule-counted-raw-tcp", "custrule-counted-tls"})
        EXPECT_EQ(lineKindOf(name), LineKind::kMessage) << name;
}

TEST(DestinationName, GoesByTheFirstDash) {
    EXPECT_EQ(lineKindOf("-raw-x"), LineKind::kWhole) << "the receiver's own name may be empty";
    EXPECT_EQ(lineKindOf("--raw-x"), LineKind::kMessage);
}

}  // namespace
}  // namespace ombrel
