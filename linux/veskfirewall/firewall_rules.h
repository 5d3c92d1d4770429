// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the firewall lets in, as text: settings and declarations in, a ruleset out. Nothing here touches a
// file or the kernel.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "linux/common/declared_ports.h"
#include "linux/common/port_list.h"

namespace ombrel {

/// What firewall.conf says:
///   policy="drop"            or "accept": nothing is kept out
///   always_open="22/tcp"     open whatever is declared; empty opens none
struct FirewallSettings {
    bool drops = true;
    OpenPorts alwaysOpen = {{{22, 22}}, {}};  ///< whoever manages the machine from afar is not locked out
};

/// Of a key that stands there more than once the first counts. A line that is neither a known key nor a
/// comment is refused: a misspelt key would shut out whoever relies on it.
/// @return 0; -1 with the reason in `fault`
int parseFirewallSettings(std::string_view text, const std::string& path, FirewallSettings& settings,
                          SettingsFault& fault);

/// The declared ports and those that are always open, merged.
OpenPorts openPorts(const std::vector<Declaration>& declarations, const FirewallSettings& settings);

/// Commands for libnftables that replace our table, whether it exists or not, all at once.
std::string renderRules(const OpenPorts& open, bool drops);

}  // namespace ombrel
