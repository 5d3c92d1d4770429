// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Takes one message as a device sent it apart: RFC 5424, RFC 3164 and what devices make of them, with or
// without PRI. Pure: reads no clock, keeps nothing, allocates nothing; every view points into the text given.
// No byte is lost: what cannot be understood stays in `message`.
#pragma once

#include <optional>
#include <string_view>

namespace ombrel {

/// A time as the sender wrote it. Without a year it is the one nearest to the receive time, without an
/// offset it is meant in the zone of this machine.
struct SenderTime {
    std::optional<int> year;
    int month = 1;  ///< 1..12
    int day = 1;    ///< 1..31
    int hour = 0;
    int minute = 0;
    int second = 0;                         ///< 0..60
    std::optional<int> utcOffsetSeconds{};  ///< east of Greenwich is positive
};

struct ParsedMessage {
    int facility = 1;  ///< 0..23; user, when the sender does not say (RFC 3164 section 4.3.3)
    int severity = 5;  ///< 0..7; notice, likewise
    std::optional<SenderTime> time;
    std::string_view host;  ///< empty when the sender does not say; at most kMaxHost bytes
    std::string_view program;
    std::string_view processId;
    std::string_view messageId;
    std::string_view structuredData;
    std::string_view message;
};

/// RFC 5424 section 6: HOSTNAME has at most 255 bytes. The rest of a longer one stays in the message.
constexpr size_t kMaxHost = 255;
/// A longer word before the text is no TAG but text.
constexpr size_t kMaxProgram = 255;

/// Whether a host stands between the time and the program of an RFC 3164 message: devices name themselves,
/// syslog(3) does not.
enum class HostField { kMayBeThere, kAbsent };

/// Line ends behind the message are dropped. Facility and severity come from a PRI of 0 to 191; with any
/// other text between angle brackets, the whole is a message without PRI and without header.
ParsedMessage parseMessage(std::string_view raw, HostField host = HostField::kMayBeThere) noexcept;

/// The text up to the line breaks and carriage returns that end it.
std::string_view withoutLineEnds(std::string_view text) noexcept;

/// "kern" .. "local7"; `facility` is 0..23.
std::string_view facilityName(int facility) noexcept;

}  // namespace ombrel
