// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the kernel says about ports.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "receiver/launcher/receiver_config.h"

namespace ombrel {

/// Whether a socket for IPv6 addresses can be bound here.
bool canUseIpv6() noexcept;

/// 0 when the port can be bound, otherwise the errno. To be asked before syslog-ng runs: it takes the port
/// itself for a moment.
int tryToBind(const Listener& listener, bool ipv6) noexcept;

/// Whether somebody has bound the port, without touching it.
bool isBound(const Listener& listener);

/// Whether a table in the form of /proc/net/tcp (or udp, tcp6, udp6) has a socket on that port that takes new
/// connections or datagrams.
bool tableHasPort(const std::string& table, bool udp, std::uint16_t port);

/// What waits in the kernel for somebody to read it: bytes that have come, and connections not yet accepted.
/// 0 when nothing does.
unsigned long waitingInKernel(const Listener& listener);

/// Likewise, of a table as above.
unsigned long waitingInTable(const std::string& table, std::uint16_t port);

/// The largest receive buffer a program may ask for (net.core.rmem_max); 0 when it is not known.
long long largestReceiveBuffer();

}  // namespace ombrel
