// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/port_list.h"

#include <algorithm>
#include <charconv>

#include "linux/common/trimmed.h"

namespace ombrel {
namespace {

constexpr int kLastPort = 65535;

/// Hands every item between commas to `take`, until that returns false. False when it did, or when there are
/// too many of them.
template <typename Take>
bool eachItem(std::string_view text, Take take) {
    for (std::size_t count = 0; count < kMostPortItems; ++count) {
        const std::size_t comma = text.find(',');
        if (!take(trimmed(text.substr(0, comma)))) return false;
        if (comma == std::string_view::npos) return true;
        text.remove_prefix(comma + 1);
    }
    return false;
}

std::optional<PortRange> parseRange(std::string_view text) {
    const std::size_t dash = text.find('-');
    const std::optional<int> first = parsePort(trimmed(text.substr(0, dash)));
    const std::optional<int> last =
        dash == std::string_view::npos ? first : parsePort(trimmed(text.substr(dash + 1)));
    if (!first || !last || *last < *first) return std::nullopt;
    return PortRange{*first, *last};
}

}  // namespace

std::optional<int> parsePort(std::string_view text) {
    const bool digitsOnly = std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    int port = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (!digitsOnly || failure != std::errc() || port < 1 || port > kLastPort) return std::nullopt;
    return port;
}

std::optional<PortRanges> parsePorts(std::string_view text) {
    PortRanges ranges;
    const bool good = eachItem(text, [&](std::string_view item) {
        const std::optional<PortRange> range = parseRange(item);
        if (range) ranges.push_back(*range);
        return range.has_value();
    });
    if (!good) return std::nullopt;
    return ranges;
}

std::optional<Protocols> parseProtocols(std::string_view text) {
    Protocols protocols;
    const bool good = eachItem(text, [&](std::string_view item) {
        bool& one = item == "tcp" ? protocols.tcp : protocols.udp;
        if (one || (item != "tcp" && item != "udp")) return false;
        return one = true;
    });
    if (!good) return std::nullopt;
    return protocols;
}

std::optional<OpenPorts> parseOpenPorts(std::string_view text) {
    OpenPorts open;
    if (trimmed(text).empty()) return open;
    const bool good = eachItem(text, [&](std::string_view item) {
        const std::size_t slash = item.find('/');
        if (slash == std::string_view::npos) return false;
        const std::optional<PortRange> range = parseRange(trimmed(item.substr(0, slash)));
        const std::string_view protocol = trimmed(item.substr(slash + 1));
        if (!range || (protocol != "tcp" && protocol != "udp")) return false;
        (protocol == "tcp" ? open.tcp : open.udp).push_back(*range);
        return true;
    });
    if (!good) return std::nullopt;
    return open;
}

PortRanges merged(PortRanges ranges) {
    std::sort(ranges.begin(), ranges.end(),
              [](const PortRange& a, const PortRange& b) { return a.first < b.first; });
    PortRanges result;
    for (const PortRange& range : ranges) {
        if (!result.empty() && range.first <= result.back().last + 1) {
            result.back().last = std::max(result.back().last, range.last);
        } else {
            result.push_back(range);
        }
    }
    return result;
}

std::string textOf(const PortRange& range) {
    const std::string first = std::to_string(range.first);
    return range.first == range.last ? first : first + "-" + std::to_string(range.last);
}

}  // namespace ombrel
