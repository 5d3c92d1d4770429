// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the name under which a batch is posted says of its lines: RECEIVER-[raw-]SOURCE, as "bsd-udp" and
// "custrule-raw-tcp".
#pragma once

#include <string_view>

namespace ombrel {

inline constexpr std::string_view kRawMark = "raw-";

/// What becomes of a line.
enum class LineKind {
    kMessage,        ///< taken apart
    kOfThisMachine,  ///< the same, logged by this machine itself
    kWhole,          ///< kept whole: all of it is the message
};

constexpr LineKind lineKindOf(std::string_view destination) noexcept {
    if (destination.starts_with("local-")) return LineKind::kOfThisMachine;
    const std::size_t dash = destination.find('-');
    const bool isRaw = dash != std::string_view::npos && destination.substr(dash + 1).starts_with(kRawMark);
    return isRaw ? LineKind::kWhole : LineKind::kMessage;
}

}  // namespace ombrel
