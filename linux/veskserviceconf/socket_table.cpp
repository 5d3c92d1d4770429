// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/veskserviceconf/socket_table.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace ombrel {
namespace {

// The columns that count: "sl local_address rem_address st tx:rx tr:when retrnsmt uid timeout inode ..."
constexpr std::size_t kLocal = 1;
constexpr std::size_t kRemote = 2;
constexpr std::size_t kState = 3;
constexpr std::size_t kInode = 9;
constexpr std::string_view kListening = "0A";  // TCP_LISTEN

using Columns = std::array<std::string_view, kInode + 1>;

std::optional<Columns> columnsOf(std::string_view line) {
    Columns columns;
    for (std::string_view& column : columns) {
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        column = line.substr(0, line.find(' '));
        if (column.empty()) return std::nullopt;
        line.remove_prefix(column.size());
    }
    return columns;
}

template <typename Number>
std::optional<Number> number(std::string_view text, int base) {
    Number value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (failure != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

/// Of "ADDRESS:PORT", both hexadecimal.
std::optional<int> portOf(std::string_view address) {
    const std::size_t colon = address.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    return number<int>(address.substr(colon + 1), 16);
}

}  // namespace

std::optional<std::vector<Inode>> socketsOnPort(std::string_view table, Transport transport, int port) {
    std::vector<Inode> inodes;
    table.remove_prefix(std::min(table.find('\n'), table.size()));  // the head line
    while (table.size() > 1) {
        table.remove_prefix(1);
        const std::size_t end = std::min(table.find('\n'), table.size());
        const std::optional<Columns> columns = columnsOf(table.substr(0, end));
        table.remove_prefix(end);
        if (!columns) return std::nullopt;
        const std::optional<int> local = portOf((*columns)[kLocal]);
        const std::optional<int> remote = portOf((*columns)[kRemote]);
        const std::optional<Inode> inode = number<Inode>((*columns)[kInode], 10);
        if (!local || !remote || !inode) return std::nullopt;
        const bool takes = transport == Transport::kTcp ? (*columns)[kState] == kListening : *remote == 0;
        if (takes && *local == port) inodes.push_back(*inode);
    }
    return inodes;
}

}  // namespace ombrel
