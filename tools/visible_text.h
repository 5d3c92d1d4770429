// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Text from files and from the network, made fit for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace ombrel {

/// `text` with every control character (also ESC, line breaks and DEL) written as \xHH.
inline std::string visibleText(std::string_view text) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string shown;
    shown.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f) {
            shown += c;
        } else {
            shown += "\\x";
            shown += kDigits[byte >> 4];
            shown += kDigits[byte & 15];
        }
    }
    return shown;
}

}  // namespace ombrel
