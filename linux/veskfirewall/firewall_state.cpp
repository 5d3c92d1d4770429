// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskfirewall/firewall_state.h"

#include <string>

#include "linux/common/trimmed.h"

namespace ombrel {

namespace {

/// "tcp . 5514-5515"
bool takeElement(std::string_view element, OpenPorts& open) {
    const std::size_t dot = element.find('.');
    if (dot == std::string_view::npos) return false;
    const std::string_view protocol = trimmed(element.substr(0, dot));
    const auto ranges = parsePorts(trimmed(element.substr(dot + 1)));
    if (!ranges || (protocol != "tcp" && protocol != "udp")) return false;
    PortRanges& to = protocol == "tcp" ? open.tcp : open.udp;
    to.insert(to.end(), ranges->begin(), ranges->end());
    return true;
}

bool takeElements(std::string_view list, OpenPorts& open) {
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(','), list.size());
        if (!takeElement(list.substr(0, end), open)) return false;
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return true;
}

}  // namespace

std::optional<FirewallState> parseFirewallState(std::string_view text) {
    constexpr std::string_view kElements = "elements = {";
    if (text.find("set open_ports {") == std::string_view::npos) return std::nullopt;
    FirewallState state;
    state.drops = text.find("policy drop;") != std::string_view::npos;
    const std::size_t begin = text.find(kElements);
    if (begin == std::string_view::npos) return state;
    const std::string_view rest = text.substr(begin + kElements.size());
    if (!takeElements(rest.substr(0, rest.find('}')), state.open)) return std::nullopt;
    return state;
}

}  // namespace ombrel
