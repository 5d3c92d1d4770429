// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/dropped_datagrams.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

namespace ombrel {

namespace {

constexpr std::size_t kMostSockets = 256;

template <typename Number>
bool readAll(std::string_view text, Number& value, int base) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc() && end == text.data() + text.size();
}

// "sl local_address rem_address st tx:rx tr:when retrnsmt uid timeout inode ref pointer drops"; addresses and
// their ports are hexadecimal.
std::optional<UdpSocket> readRow(const std::string& line) {
    constexpr std::size_t kLocal = 1;
    constexpr std::size_t kInode = 9;
    constexpr std::size_t kDrops = 12;
    std::istringstream words(line);
    std::string word;
    UdpSocket socket;
    for (std::size_t column = 0; words >> word; ++column) {
        const std::size_t colon = word.rfind(':');
        if (column == kLocal &&
            (colon == std::string::npos || !readAll(std::string_view(word).substr(colon + 1), socket.port, 16)))
            return std::nullopt;
        if (column == kInode && !readAll(word, socket.inode, 10)) return std::nullopt;
        if (column == kDrops) return readAll(word, socket.drops, 10) ? std::optional(socket) : std::nullopt;
    }
    return std::nullopt;
}

}  // namespace

std::vector<UdpSocket> udpSocketsOf(std::istream& table, const std::set<std::uint16_t>& ports) {
    std::vector<UdpSocket> sockets;
    for (std::string line; sockets.size() < kMostSockets && std::getline(table, line);) {
        const auto socket = readRow(line);
        if (socket && ports.contains(socket->port)) sockets.push_back(*socket);
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
