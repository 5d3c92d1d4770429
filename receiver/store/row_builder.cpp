// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/store/row_builder.h"

#include <utility>

namespace ombrel {

namespace {

bool isBlank(std::string_view text) noexcept {
    return text.find_first_not_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

// A socket for both kinds of addresses gives IPv4 senders as ::ffff:192.0.2.1.
std::string_view plainAddress(std::string_view address) noexcept {
    constexpr std::string_view kMapped = "::ffff:";
    const bool mapped = address.starts_with(kMapped) && address.find('.') != std::string_view::npos;
    return mapped ? address.substr(kMapped.size()) : address;
}

}  // namespace

// A NUL would end the text for whoever reads it as a string (RFC 5424 section 8.2 for the replacement).
std::string_view RowBuilder::storable(std::string_view text) {
    if (text.find('\0') == std::string_view::npos) return text;
    std::string& clean = kept_.emplace_back();
    for (const char c : text) {
        if (c == '\0') {
            clean += "#000";
        } else {
            clean += c;
        }
    }
    return clean;
}

// What a row has whatever the text says.
LogRow RowBuilder::frameOf(const BatchLine& line) {
    LogRow row;
    row.id = line.id;
    row.received = line.received;
    row.time = line.received;
    row.sender = plainAddress(line.sender);
    return row;
}

LogRow RowBuilder::rowOf(const BatchLine& line, HostField host) {
    LogRow row = frameOf(line);
    row.parsed = parseMessage(storable(line.text), host);
    if (row.parsed.time) row.sent = clock_.resolve(*row.parsed.time, line.received);
    row.time = ownTime(row.sent, line.received);
    return row;
}

std::optional<LogRow> RowBuilder::received(const BatchLine& line) {
    if (isBlank(line.text)) return std::nullopt;
    LogRow row = rowOf(line, HostField::kMayBeThere);
    row.host = row.parsed.host.empty() ? row.sender : row.parsed.host;
    return row;
}

std::optional<LogRow> RowBuilder::ofThisMachine(const BatchLine& line, std::string_view machine) {
    if (isBlank(line.text)) return std::nullopt;
    LogRow row = rowOf(line, HostField::kAbsent);
    row.host = machine;
    return row;
}

std::optional<LogRow> RowBuilder::whole(const BatchLine& line) {
    if (isBlank(line.text)) return std::nullopt;
    LogRow row = frameOf(line);
    row.host = row.sender;
    row.parsed.message = storable(withoutLineEnds(line.text));
    return row;
}

std::optional<LogRow> RowBuilder::imported(std::string_view text, std::string_view sender, std::int64_t reference,
                                           std::optional<int> year, std::int64_t now) {
    if (isBlank(text)) return std::nullopt;
    LogRow row;
    row.received = now;
    row.sender = sender;
    row.parsed = parseMessage(storable(text));
    row.host = row.parsed.host.empty() ? row.sender : row.parsed.host;
    if (row.parsed.time) {
        SenderTime time = *row.parsed.time;
        if (!time.year) time.year = year;
        row.sent = clock_.resolve(time, reference);
    }
    // No log is older than the epoch, and the day of such a time could not name an archive.
    row.time = row.sent && *row.sent >= 0 ? *row.sent : reference;
    return row;
}

}  // namespace ombrel
