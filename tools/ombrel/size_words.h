// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Sizes as people write them: plain bytes, or a number and a unit, which is a power of 1024. Pure.
#pragma once

#include <charconv>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace ombrel {

inline constexpr long long kMib = 1LL << 20;
inline constexpr long long kGib = 1LL << 30;

/// What a size may be, to stand behind "expected".
inline constexpr const char* kExpectedSize =
    "a size such as 4096, 500M or 10GiB (units K, M, G, T: powers of 1024)";

/// "4096", "4096B", "500M", "500MiB", in any letter case; a whole number, at most 2^63 - 1 bytes.
inline std::optional<unsigned long long> parseSize(std::string_view text) {
    unsigned long long number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{}) return std::nullopt;
    std::string unit(stop, end);
    for (char& c : unit)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    unsigned shift = 0;
    if (!unit.empty() && unit != "b") {
        const auto power = std::string_view("kmgt").find(unit.front());
        const std::string rest = unit.substr(1);
        if (power == std::string_view::npos || (!rest.empty() && rest != "ib")) return std::nullopt;
        shift = 10 * (static_cast<unsigned>(power) + 1);
    }
    constexpr auto kMost = static_cast<unsigned long long>(std::numeric_limits<long long>::max());
    if (number > kMost >> shift) return std::nullopt;
    return number << shift;
}

}  // namespace ombrel
