// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/service_ports.h"

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "linux/common/bounded_file.h"
#include "linux/common/error_record.h"
#include "linux/common/text_escape.h"

namespace ombrel {
namespace {

constexpr std::size_t kMostTableBytes = 256 << 20;

/// The callers report a number; what it means is told to whoever reads the system log.
int refuse(int code, const std::string& reason) {
    ::syslog(LOG_ERR, "veskserviceconf: whether a port is free cannot be told: %s", reason.c_str());
    return fail(code);
}

int readSockets(const std::string& path, Transport transport, std::vector<SocketRow>& sockets) {
    std::string table;
    const int error = readBounded(path, kMostTableBytes, table);
    if (error != 0) return refuse(fromErrno(error), path + ": " + std::strerror(error));
    const std::optional<std::vector<SocketRow>> rows = readSocketTable(table, transport);
    if (!rows) return refuse(kErrorProgramFailed, path + ": is no table of sockets");
    for (const SocketRow& row : *rows) {
        if (takesFromAnybody(row, transport)) sockets.push_back(row);
    }
    return 0;
}

bool declares(const Declaration& declaration, int port, Transport transport) {
    const Protocols& protocols = declaration.protocols;
    return (transport == Transport::kTcp ? protocols.tcp : protocols.udp) &&
           std::any_of(declaration.ports.begin(), declaration.ports.end(),
                       [port](const PortRange& range) { return range.holds(port); });
}

}  // namespace

// A kernel without IPv6 has no tables of it.
int readTakingSockets(const std::string& processes, Transport transport, std::vector<SocketRow>& sockets) {
    const std::string table = processes + (transport == Transport::kTcp ? "/net/tcp" : "/net/udp");
    if (readSockets(table, transport, sockets) != 0) return -1;
    const std::string table6 = table + "6";
    if (::access(table6.c_str(), F_OK) != 0 && errno == ENOENT) return 0;
    return readSockets(table6, transport, sockets);
}

std::string describe(const PortUse& use) {
    if (!use.file.empty())
        return "declared as [" + escapeForLine(use.section) + "] of " + escapeForLine(use.file) + " (" +
               escapeForLine(use.displayName) + ")";
    if (use.holder.processId == 0) return "bound by a process that cannot be looked at, or by the kernel";
    return "bound by process " + std::to_string(use.holder.processId) + " (" + escapeForLine(use.holder.program) +
           ")";
}

std::vector<PortUse> declarersOf(const std::vector<Declaration>& declarations, std::string_view service, int port,
                                 Transport transport) {
    std::vector<PortUse> uses;
    for (const Declaration& one : declarations) {
        if (one.section != service && declares(one, port, transport))
            uses.push_back({one.file, one.section, one.displayName, {}});
    }
    return uses;
}

int findPortUses(const PortPlaces& places, std::string_view service, int port, Transport transport,
                 std::vector<PortUse>& uses) {
    std::vector<Declaration> declarations;
    SettingsFault fault;
    if (readDeclarations(places.declarations, declarations, fault) != 0)
        return refuse(fault.code, describe(fault));
    std::vector<SocketRow> rows;
    if (readTakingSockets(places.processes, transport, rows) != 0) return -1;
    std::vector<Inode> sockets;
    for (const SocketRow& row : rows) {
        if (row.localPort == port) sockets.push_back(row.inode);
    }
    std::vector<PortUse> found = declarersOf(declarations, service, port, transport);
    const OwnPrograms own(places.package);
    for (Holder& holder : foreignHolders(places.processes, sockets, own))
        found.push_back({{}, {}, {}, std::move(holder)});
    uses = std::move(found);
    return 0;
}

}  // namespace ombrel
