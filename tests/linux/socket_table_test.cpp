// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Tables of sockets as the kernel writes them.
#include "linux/veskserviceconf/socket_table.h"

#include <gmock/gmock.h>

namespace ombrel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

constexpr const char* kTcp =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   0: 00000000:0202 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 11 1 0 100 0 0 10 "
    "0\n"
    "   1: 0100007F:0202 00000000:0000 0A 00000000:00000000 00:00000000 00000000   101        0 12 1 0 100 0 0 10 "
    "0\n"
    "   2: 0100007F:0202 0100007F:C350 01 00000000:00000000 00:00000000 00000000     0        0 13 1 0 20 4 30 10 "
    "-1\n"
    "   3: 0100007F:C350 0100007F:0202 01 00000000:00000000 00:00000000 00000000     0        0 14 1 0 20 4 30 10 "
    "-1\n"
    "   4: 0100007F:0202 0100007F:C351 06 00000000:00000000 03:00001234 00000000     0        0 0 3 0\n"
    "   5: 00000000:0801 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 0 1 0 100 0 0 10 "
    "0\n";

constexpr const char* kUdp6 =
    "  sl  local_address                         remote_address                        st tx_queue rx_queue tr "
    "tm->when retrnsmt   uid  timeout inode ref pointer drops\n"
    " 1230: 00000000000000000000000000000000:0202 00000000000000000000000000000000:0000 07 00000000:00000000 "
    "00:00000000 00000000     0        0 21 2 0 0\n"
    " 1231: 00000000000000000000000001000000:0202 00000000000000000000000001000000:0035 01 00000000:00000000 "
    "00:00000000 00000000     0        0 22 2 0 0\n";

TEST(SocketTable, OfTcpHoldsThoseThatListen) {
    EXPECT_THAT(socketsOnPort(kTcp, Transport::kTcp, 514), Optional(ElementsAre(11, 12)));
    EXPECT_THAT(socketsOnPort(kTcp, Transport::kTcp, 50000), Optional(IsEmpty()));
    EXPECT_THAT(socketsOnPort(kTcp, Transport::kTcp, 1), Optional(IsEmpty()));
}

TEST(SocketTable, KnowsSocketsOfTheKernelByNoInode) {
    EXPECT_THAT(socketsOnPort(kTcp, Transport::kTcp, 2049), Optional(ElementsAre(0)));
}

TEST(SocketTable, OfUdpHoldsThoseWithoutAPeer) {
    EXPECT_THAT(socketsOnPort(kUdp6, Transport::kUdp, 514), Optional(ElementsAre(21)));
}

TEST(SocketTable, MayBeEmpty) {
    EXPECT_THAT(socketsOnPort("", Transport::kUdp, 514), Optional(IsEmpty()));
    EXPECT_THAT(socketsOnPort("  sl  local_address\n", Transport::kUdp, 514), Optional(IsEmpty()));
}

TEST(SocketTable, IsRefusedWhenALineIsOfAnotherKind) {
    const std::string head = "  sl  local_address\n";
    for (const char* line : {
             "junk\n",
             "\n\n",
             " 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0\n",
             " 0: 000000000202 00000000:0000 07 0:0 00:0 0 0 0 21 2\n",
             " 0: 00000000:02x2 00000000:0000 07 0:0 00:0 0 0 0 21 2\n",
             " 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0 -1 2\n",
         }) {
        EXPECT_EQ(socketsOnPort(head + line, Transport::kUdp, 514), std::nullopt) << line;
    }
}

}  // namespace
}  // namespace ombrel
