// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/ports.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <set>

#include "linux/common/fd.h"
#include "linux/common/process_sockets.h"
#include "linux/common/socket_table.h"

namespace ombrel {

namespace {

int bindOne(int family, int type, std::uint16_t port) noexcept {
    const Fd socket(::socket(family, type | SOCK_CLOEXEC, 0));
    if (!socket) return errno;
    const int on = 1;
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return errno;
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(port);
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    const bool isSix = family == AF_INET6;
    const auto* const address =
        isSix ? reinterpret_cast<const sockaddr*>(&six) : reinterpret_cast<const sockaddr*>(&four);
    const socklen_t size = isSix ? sizeof six : sizeof four;
    if (::bind(socket.get(), address, size) != 0) return errno;
    return type == SOCK_STREAM && ::listen(socket.get(), 1) != 0 ? errno : 0;
}

}  // namespace

bool canUseIpv6() noexcept {
    return bindOne(AF_INET6, SOCK_DGRAM, 0) == 0;
}

int tryToBind(const Source& source, bool ipv6) noexcept {
    const int type = source.kind == SourceKind::kUdp ? SOCK_DGRAM : SOCK_STREAM;
    return bindOne(ipv6 ? AF_INET6 : AF_INET, type, source.port);
}

namespace {

Transport transportOf(const Source& source) {
    return source.kind == SourceKind::kUdp ? Transport::kUdp : Transport::kTcp;
}

// The sockets on that port, of either family.
std::vector<SocketRow> rowsOf(const Source& source) {
    const Transport transport = transportOf(source);
    std::vector<SocketRow> rows;
    for (const char* const family : {"", "6"}) {
        std::ifstream table(std::string("/proc/net/") + (transport == Transport::kUdp ? "udp" : "tcp") + family);
        for (std::string line; std::getline(table, line);) {
            const auto row = readSocketRow(line, transport);  // the head is none
            if (row && row->localPort == source.port) rows.push_back(*row);
        }
    }
    return rows;
}

std::set<Inode> boundSockets(const Source& source) {
    std::set<Inode> inodes;
    for (const SocketRow& row : rowsOf(source)) {
        if (takesFromAnybody(row, transportOf(source))) inodes.insert(row.inode);
    }
    return inodes;
}

// How many of them the process has open.
std::ptrdiff_t countHeld(pid_t process, const std::set<Inode>& sockets) {
    if (process < 0 || sockets.empty()) return 0;
    const std::set<Inode> held = socketsOfProcess("/proc/" + std::to_string(process));
    return std::count_if(sockets.begin(), sockets.end(), [&](Inode inode) { return held.contains(inode); });
}

}  // namespace

PortHolder whoHolds(const Source& source, pid_t process) {
    const auto bound = boundSockets(source);
    if (bound.empty()) return PortHolder::kNobody;
    return countHeld(process, bound) == std::ssize(bound) ? PortHolder::kProcess : PortHolder::kAnother;
}

bool hasBound(pid_t process, const Source& source) {
    return countHeld(process, boundSockets(source)) > 0;
}

unsigned long long waitingInKernel(const Source& source) {
    unsigned long long sum = 0;
    if (!hasPort(source.kind)) return sum;
    for (const SocketRow& row : rowsOf(source))
        sum += row.waiting;
    return sum;
}

long long largestReceiveBuffer() {
    std::ifstream file("/proc/sys/net/core/rmem_max");
    long long bytes = 0;
    return file >> bytes ? bytes : 0;
}

}  // namespace ombrel
