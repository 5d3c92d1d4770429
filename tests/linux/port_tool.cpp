// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Calls the platform's port and firewall functions, for the system tests. What they tell the system log is shown
// on standard error as well.
//   port-tool set FILE SECTION PORT tcp|udp
//   port-tool remove FILE SECTION
//   port-tool hup
//   port-tool conflict SERVICE PORT PROTOCOL     prints who uses the port
// Exit codes: 0 done or no conflict, 1 failed, 2 conflict, 64 usage.
#include <syslog.h>

#include <charconv>
#include <cstdio>
#include <string_view>

#include "linux/veskserviceconf/service_ports.h"
#include "platform/veskcore.h"
#include "platform/veskfirewall.h"
#include "tests/linux/port_declaration.h"

using namespace ombrel::test;

namespace {

int usage() {
    std::fputs(
        "usage: port-tool set FILE SECTION PORT tcp|udp | remove FILE SECTION | hup | conflict SERVICE PORT "
        "PROTOCOL\n",
        stderr);
    return 64;
}

int done(int result) {
    if (result >= 0) return 0;
    std::fprintf(stderr, "port-tool: failed[0x%04X %s:%d]\n", static_cast<unsigned>(VLIBCErrGet()),
                 VLIBCErrorGetFile(), VLIBCErrorGetLine());
    return 1;
}

int numberOf(std::string_view text) {
    int number = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), number);  // 0 is refused as a port
    return number;
}

int conflict(const char* service, const char* port, const char* protocol) {
    VESK_SERVICE_PORTS* ports = nullptr;
    const int result = VLIBIsPortConflict(service, port, protocol, 28, &ports);
    if (ports == nullptr) return done(result);
    for (const ombrel::PortUse& use : ports->uses)
        std::puts(describe(use).c_str());
    VESKServiceConfPortsFree(ports);
    return result == 1 ? 2 : done(result);
}

}  // namespace

int main(int argc, char** argv) {
    ::openlog("port-tool", LOG_PERROR, LOG_USER);
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "set" && argc == 6)
        return done(
            declarePort(argv[3], std::string_view(argv[5]) == "udp" ? kUdp : kTcp, numberOf(argv[4]), argv[2]));
    if (command == "remove" && argc == 4) return done(withdrawPort(argv[3], argv[2]));
    if (command == "hup" && argc == 2) return done(VESKFwRuleHup());
    if (command == "conflict" && argc == 5) return conflict(argv[2], argv[3], argv[4]);
    return usage();
}
