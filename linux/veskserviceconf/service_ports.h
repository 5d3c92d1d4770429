// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Who uses a port: what VLIBIsPortConflict() finds, and how it is read.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "linux/common/declared_ports.h"
#include "linux/common/socket_holders.h"

namespace ombrel {

/// A section that declares the port, or a process that has bound it.
struct PortUse {
    std::string file;  ///< in the declaration folder; empty for a process
    std::string section;
    std::string displayName;
    Holder holder;
};

/// One line without control characters.
std::string describe(const PortUse& use);

/// The places that are asked.
struct PortPlaces {
    std::string declarations;
    std::string processes;  ///< /proc
    std::string package;
};

/// The sockets that take what anybody sends.
/// @return 0; -1, with the reason in the error record and in the system log, when it cannot be told
int readTakingSockets(const std::string& processes, Transport transport, std::vector<SocketRow>& sockets);
/// The declarations of the port by other sections than `service`, and the processes that have bound it.
std::vector<PortUse> declarersOf(const std::vector<Declaration>& declarations, std::string_view service, int port,
                                 Transport transport);
/// @return 0; -1, with the reason in the error record and in the system log, when it cannot be told
int findPortUses(const PortPlaces& places, std::string_view service, int port, Transport transport,
                 std::vector<PortUse>& uses);

}  // namespace ombrel

struct VESK_SERVICE_PORTS {
    std::vector<ombrel::PortUse> uses;
};
