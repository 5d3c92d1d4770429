// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Ports and protocols as people write them.
#include "linux/common/port_list.h"

#include <gmock/gmock.h>

namespace ombrel {

void PrintTo(const PortRange& range, std::ostream* out) {
    *out << textOf(range);
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Port, IsANumberOf1To65535) {
    EXPECT_EQ(parsePort("1"), 1);
    EXPECT_EQ(parsePort("514"), 514);
    EXPECT_EQ(parsePort("00514"), 514);
    EXPECT_EQ(parsePort("65535"), 65535);
}

TEST(Port, IsNothingElse) {
    for (const char* text : {"", "0", "65536", "-1", "+514", " 514", "514 ", "0x202", "514a", "5 14", "514.0",
                             "99999999999999999999", "\xd9\xa5"}) {
        EXPECT_EQ(parsePort(text), std::nullopt) << text;
    }
    EXPECT_EQ(parsePort(std::string_view("514\0", 4)), std::nullopt);
}

TEST(PortList, IsOfPortsAndRanges) {
    EXPECT_EQ(parsePorts("514"), (PortRanges{{514, 514}}));
    EXPECT_EQ(parsePorts("514,6514-6520"), (PortRanges{{514, 514}, {6514, 6520}}));
    EXPECT_EQ(parsePorts(" 514 ,\t6514 - 6520 "), (PortRanges{{514, 514}, {6514, 6520}}));
    EXPECT_EQ(parsePorts("1-65535"), (PortRanges{{1, 65535}}));
    EXPECT_EQ(parsePorts("7-7,3,7"), (PortRanges{{7, 7}, {3, 3}, {7, 7}}));
}

TEST(PortList, IsRefusedAsAWhole) {
    for (const char* text : {"", " ", ",", "514,", ",514", "514,,515", "514;515", "514 515", "6520-6514", "1-",
                             "-1", "1-2-3", "0-9", "9-65536", "514,http"}) {
        EXPECT_EQ(parsePorts(text), std::nullopt) << text;
    }
}

TEST(PortList, HasAtMost256Items) {
    std::string text = "1";
    for (std::size_t i = 1; i < kMostPortItems; ++i)
        text += ",1";
    EXPECT_TRUE(parsePorts(text).has_value());
    EXPECT_FALSE(parsePorts(text + ",1").has_value());
}

TEST(ProtocolList, IsOneOrBoth) {
    EXPECT_EQ(parseProtocols("tcp"), (Protocols{true, false}));
    EXPECT_EQ(parseProtocols("udp"), (Protocols{false, true}));
    EXPECT_EQ(parseProtocols("tcp,udp"), (Protocols{true, true}));
    EXPECT_EQ(parseProtocols("udp, tcp"), (Protocols{true, true}));
    for (const char* text :
         {"", ",", "tcp,", "TCP", "both", "tcp/udp", "tcp udp", "tcp,tcp", "tcp,udp,udp", "6"}) {
        EXPECT_EQ(parseProtocols(text), std::nullopt) << text;
    }
}

TEST(OpenPortList, GivesEachItemItsProtocol) {
    EXPECT_EQ(parseOpenPorts("22/tcp"), (OpenPorts{{{22, 22}}, {}}));
    EXPECT_EQ(parseOpenPorts("22/tcp, 5353/udp,6000-6010/tcp"),
              (OpenPorts{{{22, 22}, {6000, 6010}}, {{5353, 5353}}}));
    EXPECT_EQ(parseOpenPorts(""), OpenPorts{});
    EXPECT_EQ(parseOpenPorts("  "), OpenPorts{});
    for (const char* text : {"22", "22/", "/tcp", "22/tcp,", "22/tcp 23/tcp", "22/icmp", "22/tcp/udp", "tcp/22"}) {
        EXPECT_EQ(parseOpenPorts(text), std::nullopt) << text;
    }
}

TEST(PortRanges, AreMergedWhereTheyTouchOrOverlap) {
    EXPECT_THAT(merged({}), IsEmpty());
    EXPECT_THAT(merged({{514, 514}, {514, 514}}), ElementsAre(PortRange{514, 514}));
    EXPECT_THAT(merged({{20, 30}, {1, 5}, {6, 9}, {25, 40}, {27, 28}, {42, 42}}),
                ElementsAre(PortRange{1, 9}, PortRange{20, 40}, PortRange{42, 42}));
    EXPECT_THAT(merged({{65535, 65535}, {1, 65534}}), ElementsAre(PortRange{1, 65535}));
}

}  // namespace
}  // namespace ombrel
