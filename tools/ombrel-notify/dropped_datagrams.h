// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Datagrams that the kernel had no room for. It counts them for each socket, from 0 when the socket is made,
// and there is no event for it: somebody has to look.
#pragma once

#include <cstdint>
#include <istream>
#include <map>
#include <set>
#include <vector>

namespace ombrel {

struct UdpSocket {
    std::uint16_t port = 0;
    unsigned long long inode = 0;  ///< no two sockets have the same one at the same time
    unsigned long long drops = 0;
    friend bool operator==(const UdpSocket&, const UdpSocket&) = default;
};

/// The sockets on one of `ports` in a table in the form of /proc/net/udp or udp6. Lines that are no rows of it
/// are skipped.
std::vector<UdpSocket> udpSocketsOf(std::istream& table, const std::set<std::uint16_t>& ports);

class DropCounters {
public:
    /// Takes the sockets as they are now.
    /// @return what each port has lost since the last look; nothing at the very first one, since nobody knows
    ///         how old those losses are
    std::map<std::uint16_t, unsigned long long> look(const std::vector<UdpSocket>& sockets);

    /// The sockets of the last look, to be kept over a restart; nothing before the first.
    [[nodiscard]] const std::vector<UdpSocket>& sockets() const { return last_; }
    [[nodiscard]] bool hasLooked() const { return hasLooked_; }
    void restore(std::vector<UdpSocket> sockets);

private:
    std::vector<UdpSocket> last_;
    bool hasLooked_ = false;
};

}  // namespace ombrel
