// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the kernel says about ports. For sources that have one.
#pragma once

#include <sys/types.h>

#include <map>
#include <set>
#include <utility>
#include <vector>

#include "linux/common/socket_table.h"
#include "receiver/launcher/receiver_config.h"

namespace ombrel {

/// The transport of a source and its port: with or without TLS a port is the same port.
using PortKey = std::pair<Transport, std::uint16_t>;
PortKey portKeyOf(const Source& source) noexcept;

/// Whether a socket for IPv6 addresses can be bound here.
bool canUseIpv6() noexcept;

/// 0 when the port can be bound by one who does not share it, otherwise the errno. To be asked before syslog-ng
/// runs: it takes the port itself for a moment.
int tryToBind(const Source& source, bool ipv6) noexcept;

/// The sockets that a process has open; none for a negative number.
std::set<Inode> socketsOf(pid_t process);

enum class PortHolder { kNobody, kProcess, kAnother };

/// The sockets of this machine at one moment, read once for any number of ports. Touches nothing.
class PortTable {
public:
    PortTable();

    /// Who has bound the port: nobody, nobody but the process that has these sockets open, or somebody else as
    /// well.
    [[nodiscard]] PortHolder whoHolds(const Source& source, const std::set<Inode>& held) const;
    /// Whether one of these sockets is bound to the port.
    [[nodiscard]] bool hasBound(const Source& source, const std::set<Inode>& held) const;
    /// What waits for somebody to read it: bytes that have come, and connections not yet accepted. 0 when nothing
    /// does, and for a source without a port.
    [[nodiscard]] unsigned long long waiting(const Source& source) const;

private:
    [[nodiscard]] std::set<Inode> boundTo(const Source& source) const;

    std::map<PortKey, std::vector<SocketRow>> rows_;
};

/// The largest receive buffer a program may ask for (net.core.rmem_max); 0 when it is not known.
long long largestReceiveBuffer();

}  // namespace ombrel
