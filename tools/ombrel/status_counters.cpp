// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/status_counters.h"

#include <algorithm>
#include <charconv>

namespace ombrel {

namespace {

/// The number behind the last semicolon.
std::optional<unsigned long long> numberOf(std::string_view line) {
    const std::string_view digits = line.substr(line.rfind(';') + 1);
    unsigned long long number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return number;
}

/// Whether it counts that of a destination: the field before the number.
bool isDropped(std::string_view line) {
    const std::size_t last = line.rfind(';');
    return line.starts_with("dst.") && last != std::string_view::npos &&
           line.substr(0, last).ends_with(";dropped");
}

}  // namespace

std::optional<ReceiverCounters> readCounters(std::string_view stats) {
    ReceiverCounters counters;
    bool isKnown = false;
    while (!stats.empty()) {
        const std::string_view line = stats.substr(0, stats.find('\n'));
        stats.remove_prefix(std::min(line.size() + 1, stats.size()));
        const auto number = numberOf(line);
        if (!number) continue;
        if (line.starts_with("center;;received;")) {
            counters.received = *number;
            isKnown = true;
        } else if (isDropped(line)) {
            counters.dropped += *number;
        }
    }
    return isKnown ? std::optional(counters) : std::nullopt;
}

}  // namespace ombrel
