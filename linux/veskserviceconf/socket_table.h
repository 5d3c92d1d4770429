// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The kernel's tables of sockets (proc(5): /proc/net/tcp and its like). Pure text.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace ombrel {

using Inode = unsigned long long;

enum class Transport { kTcp, kUdp };

/// The sockets that take what is sent to a port, whatever address they are bound to: those of TCP that listen,
/// those of UDP without a peer. 0 is a socket of the kernel's own.
/// @return nothing when this is no such table
std::optional<std::vector<Inode>> socketsOnPort(std::string_view table, Transport transport, int port);

}  // namespace ombrel
