// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Texts of strangers made safe for one line of a log, a terminal or a JSON file.
#pragma once

#include <string>
#include <string_view>

namespace ombrel {

/// Control characters and bytes that are no UTF-8 as \xNN; everything else stays.
std::string escapeForLine(std::string_view text);

/// A JSON string with its quotes, in ASCII alone; bytes that are no UTF-8 become U+FFFD (RFC 8259).
std::string quoteJson(std::string_view text);

}  // namespace ombrel
