// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The two ways in which devices write a time.
#pragma once

#include <optional>

#include "receiver/message/message_parser.h"
#include "receiver/message/text_cursor.h"

namespace ombrel {

/// "Nov 21 05:05:01" (RFC 3164 section 4.1.2), the day with one or two digits, a year behind the day and a
/// fraction of a second allowed. Takes nothing when there is no such time.
std::optional<SenderTime> takeBsdTime(TextCursor& text) noexcept;

/// "2026-11-21T05:05:01.123+01:00" (RFC 3339, RFC 5424 section 6.2.3); a blank instead of the T, and a time
/// without an offset are allowed. Takes nothing when there is no such time.
std::optional<SenderTime> takeIsoTime(TextCursor& text) noexcept;

}  // namespace ombrel
