// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/dropped_datagrams.h"

#include <algorithm>
#include <string>
#include <utility>

#include "linux/common/socket_table.h"

namespace ombrel {

namespace {

constexpr std::size_t kMostSockets = 256;

}  // namespace

std::vector<UdpSocket> udpSocketsOf(std::istream& table, const std::set<std::uint16_t>& ports) {
    std::vector<UdpSocket> sockets;
    for (std::string line; sockets.size() < kMostSockets && std::getline(table, line);) {
        const auto row = readSocketRow(line, Transport::kUdp);
        if (row && ports.contains(row->localPort)) sockets.push_back({row->localPort, row->inode, row->drops});
    }
    return sockets;
}

std::map<std::uint16_t, unsigned long long> DropCounters::look(const std::vector<UdpSocket>& sockets) {
    std::map<std::uint16_t, unsigned long long> lost;
    for (const UdpSocket& socket : sockets) {
        const auto known = std::find_if(last_.begin(), last_.end(), [&](const UdpSocket& one) {
            return one.inode == socket.inode && one.port == socket.port && one.drops <= socket.drops;
        });
        const unsigned long long before = known == last_.end() ? 0 : known->drops;
        if (hasLooked_ && socket.drops > before) lost[socket.port] += socket.drops - before;
    }
    last_ = sockets;
    hasLooked_ = true;
    return lost;
}

void DropCounters::restore(std::vector<UdpSocket> sockets) {
    last_ = std::move(sockets);
    hasLooked_ = true;
}

}  // namespace ombrel
