// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/ports.h"

#include <sys/socket.h>

#include <algorithm>
#include <fstream>
#include <numeric>
#include <string>

#include "linux/common/process_sockets.h"
#include "linux/common/try_bind.h"

namespace ombrel {

bool canUseIpv6() noexcept {
    return tryToBind(AF_INET6, SOCK_DGRAM, 0) == 0;
}

int tryToBind(const Source& source, bool ipv6) noexcept {
    const int type = source.kind == SourceKind::kUdp ? SOCK_DGRAM : SOCK_STREAM;
    return tryToBind(ipv6 ? AF_INET6 : AF_INET, type, source.port);
}

PortKey portKeyOf(const Source& source) noexcept {
    return {source.kind == SourceKind::kUdp ? Transport::kUdp : Transport::kTcp, source.port};
}

std::set<Inode> socketsOf(pid_t process) {
    return process < 0 ? std::set<Inode>() : socketsOfProcess("/proc/" + std::to_string(process));
}

PortTable::PortTable() {
    for (const char* const name : {"tcp", "tcp6", "udp", "udp6"}) {
        const Transport transport = name[0] == 'u' ? Transport::kUdp : Transport::kTcp;
        std::ifstream table(std::string("/proc/net/") + name);
        for (std::string line; std::getline(table, line);) {
            const auto row = readSocketRow(line, transport);  // the head is none
            if (row) rows_[{transport, row->localPort}].push_back(*row);
        }
    }
}

std::set<Inode> PortTable::boundTo(const Source& source) const {
    std::set<Inode> inodes;
    const PortKey key = portKeyOf(source);
    const auto found = rows_.find(key);
    if (found == rows_.end()) return inodes;
    for (const SocketRow& row : found->second) {
        if (takesFromAnybody(row, key.first)) inodes.insert(row.inode);
    }
    return inodes;
}

PortHolder PortTable::whoHolds(const Source& source, const std::set<Inode>& held) const {
    const std::set<Inode> bound = boundTo(source);
    if (bound.empty()) return PortHolder::kNobody;
    return std::includes(held.begin(), held.end(), bound.begin(), bound.end()) ? PortHolder::kProcess
                                                                               : PortHolder::kAnother;
}

bool PortTable::hasBound(const Source& source, const std::set<Inode>& held) const {
    const std::set<Inode> bound = boundTo(source);
    return std::any_of(bound.begin(), bound.end(), [&](Inode inode) { return held.contains(inode); });
}

unsigned long long PortTable::waiting(const Source& source) const {
    const auto found = hasPort(source.kind) ? rows_.find(portKeyOf(source)) : rows_.end();
    if (found == rows_.end()) return 0;
    return std::accumulate(found->second.begin(), found->second.end(), 0ULL,
                           [](unsigned long long sum, const SocketRow& row) { return sum + row.waiting; });
}

long long largestReceiveBuffer() {
    std::ifstream file("/proc/sys/net/core/rmem_max");
    long long bytes = 0;
    return file >> bytes ? bytes : 0;
}

}  // namespace ombrel
