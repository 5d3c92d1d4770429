// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/machine_ports.h"

#include <sys/socket.h>

#include <cerrno>

#include "linux/common/error_record.h"
#include "linux/common/try_bind.h"
#include "linux/veskfirewall/firewall_state.h"
#include "linux/veskfirewall/nft_transaction.h"
#include "linux/veskserviceconf/service_ports.h"

namespace ombrel {

namespace {

constexpr const char* kProcesses = "/proc";
constexpr const char* kPackage = "/var/packages/Ombrel/target";
constexpr const char* kOwnFile = "vesk_syslog.sc";

bool isOfAReceiver(const PortUse& use) {
    return use.file == kOwnFile && (use.section == "syslog_server" || use.section == "syslog_server_ietf");
}

}  // namespace

std::optional<PortUsers> portUsers(int port, bool isUdp) {
    const Transport transport = isUdp ? Transport::kUdp : Transport::kTcp;
    std::vector<PortUse> uses;
    if (findPortUses({kDeclarationFolder, kProcesses, kPackage}, "", port, transport, uses) != 0)
        return std::nullopt;
    const auto own = ownPorts();
    if (!own) return std::nullopt;
    PortUsers users;
    for (const PortUse& use : uses) {
        if (isOfAReceiver(use)) continue;
        (use.file.empty() ? users.holders : users.declarers).push_back(describe(use));
    }
    users.isOurs = own->contains(std::to_string(port) + (isUdp ? "/udp" : "/tcp"));
    return users;
}

std::optional<std::set<std::string>> ownPorts() {
    const std::set<Inode> own = socketsOfOwn(kProcesses, OwnPrograms(kPackage));
    std::set<std::string> ports;
    for (const Transport transport : {Transport::kTcp, Transport::kUdp}) {
        std::vector<SocketRow> rows;
        if (readTakingSockets(kProcesses, transport, rows) != 0) return std::nullopt;
        for (const SocketRow& row : rows) {
            if (own.contains(row.inode))
                ports.insert(std::to_string(row.localPort) + (transport == Transport::kUdp ? "/udp" : "/tcp"));
        }
    }
    return ports;
}

int bindPort(int port, bool isUdp) {
    const int type = isUdp ? SOCK_DGRAM : SOCK_STREAM;
    const auto number = static_cast<std::uint16_t>(port);
    const int code = tryToBind(AF_INET6, type, number);
    return code == EAFNOSUPPORT || code == EADDRNOTAVAIL ? tryToBind(AF_INET, type, number) : code;
}

FirewallPorts firewallPorts() {
    FirewallPorts ports;
    std::string answer;
    const int code = askFirewall(kListFirewall, answer, ports.reason);
    if (code == fromErrno(ENOENT)) {
        ports.state = FirewallPorts::State::kNoTable;
    } else if (const auto state = code == 0 ? parseFirewallState(answer) : std::nullopt) {
        ports = {FirewallPorts::State::kKnown, state->drops, state->open, ""};
    } else if (code == 0) {
        ports.reason = "the table \"inet ombrel\" is not one of this package";
    }
    return ports;
}

}  // namespace ombrel
