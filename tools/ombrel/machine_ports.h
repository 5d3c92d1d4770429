// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Ports, asked of the machine.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "linux/common/port_list.h"

namespace ombrel {

struct PortUsers {
    bool isOurs = false;               ///< a program of the package takes what is sent there
    std::vector<std::string> holders;  ///< other programs that do: "bound by process 12 (/usr/bin/nc)"
    std::vector<std::string>
        declarers;  ///< "declared as [web] of web.sc (Web server)"; not the receivers themselves
};
/// Nothing when it cannot be told, which the error record explains.
std::optional<PortUsers> portUsers(int port, bool isUdp);

/// All ports that programs of the package take things from: "514/udp". Nothing when it cannot be told.
std::optional<std::set<std::string>> ownPorts();

/// Binds the port and lets it go again. 0, otherwise the errno.
int bindPort(int port, bool isUdp);

/// What the firewall lets in.
struct FirewallPorts {
    enum class State { kKnown, kNoTable, kUnknown };
    State state = State::kUnknown;
    bool drops = false;  ///< keeps out what is not open
    OpenPorts open;
    std::string reason;  ///< why it is unknown
};
FirewallPorts firewallPorts();

}  // namespace ombrel
