// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string_view>

namespace ombrel {

/// Letters, digits, ".", "_", "-"; at most 200 characters; not first "." or "-": a name that is neither path nor
/// option. Null is none.
inline bool isJobName(const char* name) {
    constexpr std::size_t kLongest = 200;
    constexpr std::string_view kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    const std::string_view text = name != nullptr ? name : "";
    return !text.empty() && text.size() <= kLongest && text.front() != '.' && text.front() != '-' &&
           text.find_first_not_of(kAllowed) == std::string_view::npos;
}

}  // namespace ombrel
