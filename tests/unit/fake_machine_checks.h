// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the checks of settings and of the whole machine are told.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "tools/ombrel/machine_files.h"
#include "tools/ombrel/machine_ports.h"

namespace ombrel::test {

struct CheckedMachine {
    bool isRoot = true;
    std::optional<bool> isClockSynchronised = true;
    std::map<std::string, FileFacts>
        files;             ///< facts of paths; of others, those of the recording platform's files
    std::string tlsFault;  ///< what whatIsWrongWithTlsFiles() says
    bool arePortsKnown = true;
    std::map<std::string, PortUsers> ports;  ///< by "514/udp"
    std::map<std::string, int> bindErrors;   ///< likewise
    std::optional<std::set<std::string>> ownPorts = std::set<std::string>{};
    FirewallPorts firewall{FirewallPorts::State::kNoTable, false, {}, ""};
};

}  // namespace ombrel::test
