// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/socket_table.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace ombrel {
namespace {

// The columns that count: "sl local_address rem_address st tx:rx tr:when retrnsmt uid timeout inode ref pointer
// drops". Behind the pointer TCP has others.
constexpr std::size_t kLocal = 1;
constexpr std::size_t kRemote = 2;
constexpr std::size_t kState = 3;
constexpr std::size_t kQueues = 4;
constexpr std::size_t kInode = 9;
constexpr std::size_t kDrops = 12;
constexpr unsigned kListening = 0x0A;  // TCP_LISTEN
constexpr int kHexadecimal = 16;
constexpr int kDecimal = 10;

using Columns = std::array<std::string_view, kDrops + 1>;

/// Those that are missing are empty.
Columns columnsOf(std::string_view line) {
    Columns columns;
    for (std::string_view& column : columns) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        column = line.substr(0, line.find(' '));
        line.remove_prefix(column.size());
    }
    return columns;
}

template <typename Number>
bool read(std::string_view text, int base, Number& value) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return failure == std::errc() && end == text.data() + text.size();
}

/// Of "ADDRESS:PORT" and "SENT:RECEIVED"; empty without a colon.
std::string_view afterColon(std::string_view pair) {
    const std::size_t colon = pair.find(':');
    return colon == std::string_view::npos ? std::string_view() : pair.substr(colon + 1);
}

}  // namespace

std::optional<SocketRow> readSocketRow(std::string_view line, Transport transport) {
    const Columns columns = columnsOf(line);
    SocketRow row;
    const bool isRow = read(afterColon(columns[kLocal]), kHexadecimal, row.localPort) &&
                       read(afterColon(columns[kRemote]), kHexadecimal, row.remotePort) &&
                       read(columns[kState], kHexadecimal, row.state) &&
                       read(afterColon(columns[kQueues]), kHexadecimal, row.waiting) &&
                       read(columns[kInode], kDecimal, row.inode) &&
                       (transport == Transport::kTcp || read(columns[kDrops], kDecimal, row.drops));
    return isRow ? std::optional(row) : std::nullopt;
}

std::optional<std::vector<SocketRow>> readSocketTable(std::string_view table, Transport transport) {
    std::vector<SocketRow> rows;
    table.remove_prefix(std::min(table.find('\n'), table.size()));  // the head line
    while (table.size() > 1) {
        table.remove_prefix(1);
        const std::size_t end = std::min(table.find('\n'), table.size());
        const std::optional<SocketRow> row = readSocketRow(table.substr(0, end), transport);
        if (!row) return std::nullopt;
        rows.push_back(*row);
        table.remove_prefix(end);
    }
    return rows;
}

bool takesFromAnybody(const SocketRow& row, Transport transport) {
    return transport == Transport::kTcp ? row.state == kListening : row.remotePort == 0;
}

}  // namespace ombrel
