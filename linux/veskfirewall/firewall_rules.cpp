// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskfirewall/firewall_rules.h"

#include <unordered_set>

#include "linux/common/error_record.h"
#include "linux/veskcore/settings_line.h"

namespace ombrel {
namespace {

constexpr const char* kExpectedPolicy = R"("drop" or "accept")";
constexpr const char* kExpectedKey = R"(the keys "policy" and "always_open" alone)";

/// What was expected in place of the line, nullptr when it is taken.
const char* takeKey(const KeyValue& pair, FirewallSettings& settings) {
    if (pair.key == "policy") {
        settings.drops = pair.value == "drop";
        return settings.drops || pair.value == "accept" ? nullptr : kExpectedPolicy;
    }
    if (pair.key != "always_open") return kExpectedKey;
    const std::optional<OpenPorts> open = parseOpenPorts(pair.value);
    if (!open) return kExpectedOpenPorts;
    settings.alwaysOpen = *open;
    return nullptr;
}

void append(PortRanges& to, const PortRanges& from) {
    to.insert(to.end(), from.begin(), from.end());
}

void appendElements(std::string& text, const char* protocol, const PortRanges& ranges) {
    for (const PortRange& range : ranges) {
        text += text.empty() ? "" : ", ";
        text.append(protocol).append(" . ").append(textOf(range));
    }
}

}  // namespace

int parseFirewallSettings(std::string_view text, const std::string& path, FirewallSettings& settings,
                          SettingsFault& fault) {
    FirewallSettings read;
    std::unordered_set<std::string_view> seen;
    for (LineReader reader(text); reader.next();) {
        if (saysNothing(reader.text())) continue;
        const KeyValue pair = parseKeyValue(reader.text()).value_or(KeyValue{reader.text(), {}});
        if (!seen.insert(pair.key).second) continue;
        const char* expected = takeKey(pair, read);
        if (expected == nullptr) continue;
        fault = {kErrorInvalidArgument,
                 path,
                 {},
                 std::string(pair.key),
                 std::string(pair.value),
                 std::string("expected ") + expected};
        return -1;
    }
    settings = std::move(read);
    return 0;
}

OpenPorts openPorts(const std::vector<Declaration>& declarations, const FirewallSettings& settings) {
    OpenPorts open = settings.alwaysOpen;
    for (const Declaration& declaration : declarations) {
        if (declaration.protocols.tcp) append(open.tcp, declaration.ports);
        if (declaration.protocols.udp) append(open.udp, declaration.ports);
    }
    return {merged(std::move(open.tcp)), merged(std::move(open.udp))};
}

// Adding the table first lets the deletion succeed where there was none. Answers to a DHCP client come from
// a server that it has not talked to at that address, so they belong to no connection.
std::string renderRules(const OpenPorts& open, bool drops) {
    std::string elements;
    appendElements(elements, "tcp", open.tcp);
    appendElements(elements, "udp", open.udp);
    std::string text =
        "add table inet ombrel\n"
        "delete table inet ombrel\n"
        "table inet ombrel {\n"
        "    set open_ports {\n"
        "        type inet_proto . inet_service\n"
        "        flags interval\n";
    if (!elements.empty()) text += "        elements = { " + elements + " }\n";
    text +=
        "    }\n"
        "    chain input {\n"
        "        type filter hook input priority filter; policy ";
    text += drops ? "drop" : "accept";
    text +=
        ";\n"
        "        iif lo accept\n"
        "        ct state established,related accept\n"
        "        meta l4proto { icmp, ipv6-icmp } accept\n";
    if (drops) text += "        ct state invalid drop\n";
    text +=
        "        meta nfproto ipv4 udp sport 67 udp dport 68 accept\n"
        "        ip6 saddr fe80::/10 udp sport 547 udp dport 546 accept\n"
        "        meta l4proto . th dport @open_ports accept\n"
        "    }\n"
        "}\n";
    return text;
}

}  // namespace ombrel
