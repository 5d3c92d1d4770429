// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// In a header of its own, since every nanosecond is paid for each text of an export.
#pragma once

#include <sqlite3.h>

#include <string_view>

namespace ombrel {

/// Any value as the bytes of its UTF-8 text; valid until the next step.
inline std::string_view columnBytesOf(sqlite3_stmt* row, int column) noexcept {
    // Asked for first, the size makes a UTF-8 text of whatever it is. The bytes of a blob are where they lie in
    // the page; those of a text would be copied there for a NUL behind them.
    const auto size = static_cast<size_t>(sqlite3_column_bytes(row, column));
    const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(row, column));
    return bytes == nullptr ? std::string_view() : std::string_view(bytes, size);
}

}  // namespace ombrel
