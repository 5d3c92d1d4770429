// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Tables of sockets as the kernel writes them.
#include "linux/common/socket_table.h"

#include <gmock/gmock.h>

#include <string>

namespace ombrel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

constexpr const char* kTcp =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
    "   0: 00000000:0202 00000000:0000 0A 00000000:00000002 00:00000000 00000000     0        0 11 1 0 100 0 0 10 "
    "0\n"
    "   1: 0100007F:0202 00000000:0000 0A 00000000:00000000 00:00000000 00000000   101        0 12 1 0 100 0 0 10 "
    "0\n"
    "   2: 0100007F:0202 0100007F:C350 01 000000FF:00001000 00:00000000 00000000     0        0 13 1 0 20 4 30 10 "
    "-1\n"
    "   3: 0100007F:C350 0100007F:0202 01 00001000:00000000 00:00000000 00000000     0        0 14 1 0 20 4 30 10 "
    "-1\n"
    "   4: 0100007F:0202 0100007F:C351 06 00000000:00000000 03:00001234 00000000     0        0 0 3 0\n"
    "   5: 00000000:0801 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 0 1 0 100 0 0 10 "
    "0\n";

constexpr const char* kUdp6 =
    "  sl  local_address                         remote_address                        st tx_queue rx_queue tr "
    "tm->when retrnsmt   uid  timeout inode ref pointer drops\n"
    " 1230: 00000000000000000000000000000000:0202 00000000000000000000000000000000:0000 07 00000000:00000340 "
    "00:00000000 00000000     0        0 21 2 0 12\n"
    " 1231: 00000000000000000000000001000000:0202 00000000000000000000000001000000:0035 01 00000000:00000000 "
    "00:00000000 00000000     0        0 22 2 0 0\n";

std::vector<SocketRow> rowsOf(const char* table, Transport transport) {
    return readSocketTable(table, transport).value_or(std::vector<SocketRow>());
}

std::vector<Inode> takersOf(const char* table, Transport transport) {
    std::vector<Inode> inodes;
    for (const SocketRow& row : rowsOf(table, transport)) {
        if (takesFromAnybody(row, transport)) inodes.push_back(row.inode);
    }
    return inodes;
}

TEST(SocketTable, OfTcpHasNoDrops) {
    EXPECT_THAT(rowsOf(kTcp, Transport::kTcp),
                ElementsAre(SocketRow{514, 0, 0x0A, 2, 11, 0}, SocketRow{514, 0, 0x0A, 0, 12, 0},
                            SocketRow{514, 50000, 1, 0x1000, 13, 0}, SocketRow{50000, 514, 1, 0, 14, 0},
                            SocketRow{514, 50001, 6, 0, 0, 0}, SocketRow{2049, 0, 0x0A, 0, 0, 0}));
}

TEST(SocketTable, OfUdpHasDrops) {
    EXPECT_THAT(rowsOf(kUdp6, Transport::kUdp),
                ElementsAre(SocketRow{514, 0, 7, 0x340, 21, 12}, SocketRow{514, 53, 1, 0, 22, 0}));
}

TEST(SocketTable, TellsWhoTakesFromAnybody) {
    EXPECT_THAT(takersOf(kTcp, Transport::kTcp), ElementsAre(11, 12, 0));
    EXPECT_THAT(takersOf(kUdp6, Transport::kUdp), ElementsAre(21));
}

TEST(SocketTable, MayBeEmpty) {
    EXPECT_THAT(readSocketTable("", Transport::kUdp), Optional(IsEmpty()));
    EXPECT_THAT(readSocketTable("  sl  local_address\n", Transport::kUdp), Optional(IsEmpty()));
}

TEST(SocketTable, ReadsALastRowWithoutALineBreak) {
    const std::string table = "head\n 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0 21 2 0 3";
    EXPECT_THAT(readSocketTable(table, Transport::kUdp), Optional(ElementsAre(SocketRow{514, 0, 7, 0, 21, 3})));
}

TEST(SocketTable, KnowsRowsByTheColumnsThatCount) {
    const SocketRow whole{65535, 0, 7, 0xFF, 21, 3};
    EXPECT_THAT(readSocketRow("0: 0:FFFF 0:0 07 x:FF x x x x 21 x x 3", Transport::kUdp), Optional(whole));
    EXPECT_THAT(readSocketRow("0: 0:FFFF 0:0 07 x:FF x x x x 21", Transport::kTcp),
                Optional(SocketRow{65535, 0, 7, 0xFF, 21, 0}));
}

TEST(SocketTable, IsNoneWhenALineIsOfAnotherKind) {
    const std::string head = "  sl  local_address\n";
    const std::string good = " 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0 21 2 0 3\n";
    for (const char* line : {
             "junk\n", "\n\n", "\x1b[2J\n", ":::::\n",
             " 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0\n",            // no inode
             " 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0 21 2\n",       // no drops
             " 0: 000000000202 00000000:0000 07 0:0 00:0 0 0 0 21 2 0 3\n",    // no local port
             " 0: 00000000: 00000000:0000 07 0:0 00:0 0 0 0 21 2 0 3\n",       // an empty one
             " 0: 00000000:02x2 00000000:0000 07 0:0 00:0 0 0 0 21 2 0 3\n",   // no number
             " 0: 00000000:10202 00000000:0000 07 0:0 00:0 0 0 0 21 2 0 3\n",  // too large
             " 0: 00000000:0202 0 07 0:0 00:0 0 0 0 21 2 0 3\n",               // no remote port
             " 0: 00000000:0202 00000000:0000 0x 0:0 00:0 0 0 0 21 2 0 3\n",   // no state
             " 0: 00000000:0202 00000000:0000 07 0 00:0 0 0 0 21 2 0 3\n",     // no queues
             " 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0 -1 2 0 3\n",   // no inode
             " 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0 21 2 0 -3\n",  // negative drops
             " 0: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0 21 2 0 99999999999999999999999\n"  // too many
         }) {
        EXPECT_EQ(readSocketTable(head + line, Transport::kUdp), std::nullopt) << line;
        EXPECT_EQ(readSocketTable(head + good + line + good, Transport::kUdp), std::nullopt) << line;
    }
    EXPECT_NE(readSocketTable(head + good + good, Transport::kUdp), std::nullopt);
}

}  // namespace
}  // namespace ombrel
