// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/process_sockets.h"
#include "linux/common/folder_stream.h"

#include <unistd.h>

#include <charconv>
#include <optional>
#include <string_view>

namespace ombrel {
namespace {

/// Of "socket:[12345]".
std::optional<Inode> socketOf(std::string_view link) {
    constexpr std::string_view kBefore = "socket:[";
    if (!link.starts_with(kBefore) || !link.ends_with(']')) return std::nullopt;
    const std::string_view digits = link.substr(kBefore.size(), link.size() - kBefore.size() - 1);
    Inode inode = 0;
    const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), inode);
    if (failure != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return inode;
}

}  // namespace

std::set<Inode> socketsOfProcess(const std::string& process) {
    std::set<Inode> sockets;
    const FolderStream folder(::opendir((process + "/fd").c_str()));
    if (!folder) return sockets;
    while (const dirent* entry = ::readdir(folder.get())) {
        char target[64];  // what is cut off is no socket
        const ssize_t length = ::readlinkat(::dirfd(folder.get()), entry->d_name, target, sizeof target);
        if (length <= 0) continue;
        const auto inode = socketOf(std::string_view(target, static_cast<std::size_t>(length)));
        if (inode) sockets.insert(*inode);
    }
    return sockets;
}

}  // namespace ombrel
