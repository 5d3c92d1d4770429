// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Ports, ranges and transport protocols as they stand in settings. Pure text.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ombrel {

struct PortRange {
    int first = 0;
    int last = 0;

    [[nodiscard]] bool holds(int port) const { return first <= port && port <= last; }
    bool operator==(const PortRange&) const = default;
};
using PortRanges = std::vector<PortRange>;

struct Protocols {
    bool tcp = false;
    bool udp = false;

    bool operator==(const Protocols&) const = default;
};

/// Items in one list at the most.
inline constexpr std::size_t kMostPortItems = 256;

/// What these expect, in words for whoever wrote something else.
inline constexpr const char* kExpectedPort = "a number of 1 to 65535";
inline constexpr const char* kExpectedPorts =
    R"(at most 256 ports of 1 to 65535 and ranges of them, such as "514,6514-6520")";
inline constexpr const char* kExpectedProtocols = R"("tcp", "udp" or "tcp,udp")";
inline constexpr const char* kExpectedOpenPorts =
    R"(at most 256 ports or ranges, each with its protocol, such as "22/tcp,5353/udp", or nothing)";

/// Digits that make 1..65535.
std::optional<int> parsePort(std::string_view text);
/// "514" or "514,6514-6520"; at least one item, in any order, overlapping or not. Blanks around items are read.
std::optional<PortRanges> parsePorts(std::string_view text);
/// "tcp", "udp" or "tcp,udp".
std::optional<Protocols> parseProtocols(std::string_view text);

/// What is open on a machine.
struct OpenPorts {
    PortRanges tcp;
    PortRanges udp;

    bool operator==(const OpenPorts&) const = default;
};
/// "22/tcp,5353/udp,6000-6010/tcp"; empty for none.
std::optional<OpenPorts> parseOpenPorts(std::string_view text);

/// The same ports in as few ranges as possible, in order.
PortRanges merged(PortRanges ranges);
/// "514" or "6514-6520".
std::string textOf(const PortRange& range);

}  // namespace ombrel
