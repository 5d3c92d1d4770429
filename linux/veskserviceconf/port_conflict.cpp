// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The port conflict test.
#include <exception>
#include <memory>
#include <optional>

#include "linux/common/error_record.h"
#include "linux/veskserviceconf/service_ports.h"
#include "platform/veskserviceconf.h"

using namespace ombrel;

namespace {

constexpr const char* kProcesses = "/proc";
constexpr const char* kPackage = "/var/packages/Ombrel/target";

std::optional<Transport> transportOf(std::string_view protocol) {
    if (protocol == "tcp") return Transport::kTcp;
    if (protocol == "udp") return Transport::kUdp;
    return std::nullopt;
}

int testPort(std::string_view service, int port, Transport transport, VESK_SERVICE_PORTS** ports) {
    auto found = std::make_unique<VESK_SERVICE_PORTS>();
    if (findPortUses({kDeclarationFolder, kProcesses, kPackage}, service, port, transport, found->uses) != 0)
        return -1;
    if (found->uses.empty()) return 0;
    if (ports != nullptr) *ports = found.release();
    return 1;
}

}  // namespace

extern "C" {

int VLIBIsPortConflict(const char* service, const char* port, const char* protocol, int /*flags*/,
                       VESK_SERVICE_PORTS** ports) {
    if (service == nullptr || port == nullptr || protocol == nullptr) return fail(kErrorInvalidArgument);
    const std::optional<int> number = parsePort(port);
    const std::optional<Transport> transport = transportOf(protocol);
    if (!number || !transport) return fail(kErrorInvalidArgument);
    try {
        return testPort(service, *number, *transport, ports);
    } catch (const std::exception&) {
        return fail(kErrorOutOfMemory);
    }
}

void VESKServiceConfPortsFree(VESK_SERVICE_PORTS* ports) {
    delete ports;
}

}  // extern "C"
