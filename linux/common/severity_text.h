// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string_view>

namespace ombrel {

constexpr char foldCase(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The severity of a version-1 row, kept as a number or as a name; -1 when it is neither.
int severityOfText(std::string_view text) noexcept;

}  // namespace ombrel
