// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The kernel's tables of sockets (proc(5): /proc/net/tcp, tcp6, udp and udp6). Pure text.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace ombrel {

using Inode = unsigned long long;

enum class Transport { kTcp, kUdp };

struct SocketRow {
    std::uint16_t localPort = 0;
    std::uint16_t remotePort = 0;    ///< 0 without a peer
    unsigned state = 0;              ///< of TCP's states
    unsigned long long waiting = 0;  ///< bytes that nobody has read yet; of one that listens, connections
    Inode inode = 0;                 ///< 0: the kernel's own, or no longer anybody's
    unsigned long long drops = 0;    ///< datagrams there was no room for; none over TCP
    friend bool operator==(const SocketRow&, const SocketRow&) = default;
};

/// @return nothing when the line is no row, as the first one of a table is none
std::optional<SocketRow> readSocketRow(std::string_view line, Transport transport);

/// The rows of a whole table, for those who must not overlook any.
/// @return nothing when a line behind the first one is no row
std::optional<std::vector<SocketRow>> readSocketTable(std::string_view table, Transport transport);

/// Whether the socket takes what anybody sends to its port: one of TCP that listens, one of UDP without a peer.
bool takesFromAnybody(const SocketRow& row, Transport transport);

}  // namespace ombrel
