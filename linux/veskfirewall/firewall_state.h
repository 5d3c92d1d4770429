// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Our table as nft(8) lists it. Pure text.
#pragma once

#include <optional>
#include <string_view>

#include "linux/common/port_list.h"

namespace ombrel {

/// What lists it; without such a table the kernel answers ENOENT.
inline constexpr const char* kListFirewall = "list table inet ombrel";

struct FirewallState {
    bool drops = false;  ///< keeps out what is not open
    OpenPorts open;
};

/// Nothing when the text is no such table.
std::optional<FirewallState> parseFirewallState(std::string_view text);

}  // namespace ombrel
