// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The kernel's table of UDP sockets, and what its counters say from one look to the next.
#include "tools/ombrel-notify/dropped_datagrams.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <fstream>
#include <sstream>

#include "linux/common/fd.h"

namespace ombrel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr const char* kHead =
    "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode ref "
    "pointer "
    "drops             \n";

std::string row(const char* address, unsigned long long inode, unsigned long long drops) {
    return "  123: " + std::string(address) +
           " 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 " + std::to_string(inode) +
           " 2 0000000000000000 " + std::to_string(drops) + "          \n";
}

std::vector<UdpSocket> read(const std::string& table) {
    std::istringstream in(table);
    return udpSocketsOf(in, {514, 5514});
}

TEST(UdpTable, GivesTheSocketsOfThePorts) {
    const std::string six = "00000000000000000000000000000000:158A";
    EXPECT_THAT(read(kHead + row("00000000:0202", 7, 0) + row("0100007F:0035", 8, 5) + row(six.c_str(), 9, 12)),
                ElementsAre(UdpSocket{514, 7, 0}, UdpSocket{5514, 9, 12}));
}

TEST(UdpTable, HasNothingToSayInOtherLines) {
    EXPECT_THAT(read(""), IsEmpty());
    EXPECT_THAT(read("junk\n\n\x1b[2J\n:::::\n"), IsEmpty());
    EXPECT_THAT(read("1: 00000000:0202 00000000:0000 07 0:0 00:0 0 0 0 12 2\n"), IsEmpty());  // no counter
    EXPECT_THAT(read(kHead + std::string("junk\n") + row("00000000:0202", 7, 3)),
                ElementsAre(UdpSocket{514, 7, 3}));
}

TEST(UdpTable, IsReadToABound) {
    std::string table = kHead;
    for (unsigned long long i = 0; i < 2000; ++i)
        table += row("00000000:0202", i, 0);
    EXPECT_EQ(read(table).size(), 256U);
}

TEST(UdpTable, OfThisMachineShowsASocketOfOurs) {
    const Fd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(::bind(socket.get(), any, sizeof address), 0);
    ASSERT_EQ(::getsockname(socket.get(), any, &size), 0);
    const int smallest = 1;
    ASSERT_EQ(::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest), 0);
    const std::uint16_t port = ntohs(address.sin_port);
    const Fd sender(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const std::string text(1000, 'x');
    constexpr int kSent = 50;
    for (int i = 0; i < kSent; ++i)
        ASSERT_EQ(::sendto(sender.get(), text.data(), text.size(), 0, any, size),
                  static_cast<ssize_t>(text.size()));
    std::ifstream table("/proc/net/udp");
    const auto sockets = udpSocketsOf(table, {port});
    ASSERT_EQ(sockets.size(), 1U);
    EXPECT_GT(sockets[0].drops, 0U);
    EXPECT_LT(sockets[0].drops, static_cast<unsigned long long>(kSent));
    EXPECT_GT(sockets[0].inode, 0U);
}

TEST(DropCountersTest, TellWhatWasLostSinceTheLastLook) {
    DropCounters counters;
    EXPECT_FALSE(counters.hasLooked());
    EXPECT_THAT(counters.look({{514, 1, 100}}), IsEmpty());  // nobody knows since when
    EXPECT_THAT(counters.look({{514, 1, 100}}), IsEmpty());
    EXPECT_THAT(counters.look({{514, 1, 107}}), ElementsAre(Pair(514, 7U)));
    EXPECT_THAT(counters.look({{514, 1, 107}}), IsEmpty());
}

TEST(DropCountersTest, AddUpTheSocketsOfAPort) {
    DropCounters counters;
    (void)counters.look({{514, 1, 0}, {514, 2, 0}, {5514, 3, 0}});
    EXPECT_THAT(counters.look({{514, 1, 3}, {514, 2, 4}, {5514, 3, 1}}),
                ElementsAre(Pair(514, 7U), Pair(5514, 1U)));
}

TEST(DropCountersTest, BeginAnewWithANewSocket) {
    DropCounters counters;
    (void)counters.look({{514, 1, 100}});
    EXPECT_THAT(counters.look({{514, 2, 5}}), ElementsAre(Pair(514, 5U)));
    EXPECT_THAT(counters.look({{514, 2, 3}}), ElementsAre(Pair(514, 3U)));  // the number came back
    EXPECT_THAT(counters.look({}), IsEmpty());
    EXPECT_THAT(counters.look({{514, 3, 2}}), ElementsAre(Pair(514, 2U)));
}

TEST(DropCountersTest, GoOnAfterARestart) {
    DropCounters counters;
    counters.restore({{514, 1, 100}});
    EXPECT_THAT(counters.look({{514, 1, 130}}), ElementsAre(Pair(514, 30U)));
    DropCounters without;
    without.restore({});
    EXPECT_THAT(without.look({{514, 1, 4}}), ElementsAre(Pair(514, 4U)));  // opened since
}

}  // namespace
}  // namespace ombrel
