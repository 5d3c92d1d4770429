// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/socket_holders.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>

#include "linux/common/bounded_file.h"
#include "linux/common/folder_stream.h"
#include "linux/common/path_parts.h"
#include "linux/common/process_sockets.h"

namespace ombrel {
namespace {

constexpr std::size_t kMostCommandLine = 1 << 20;

struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
};

/// Hands over the names in a folder; none where it cannot be read.
void eachEntry(const std::string& path, const std::function<void(const char*)>& take) {
    const FolderStream folder(::opendir(path.c_str()));
    if (!folder) return;
    while (const dirent* entry = ::readdir(folder.get())) {
        if (entry->d_name[0] != '.') take(entry->d_name);
    }
}

/// Empty when there is no such link or it must not be read.
std::string linkAt(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

std::string resolved(const std::string& path) {
    const std::unique_ptr<char, Free> real(::realpath(path.c_str(), nullptr));
    return real ? std::string(real.get()) : std::string();
}

int processIdOf(std::string_view name) {
    int id = 0;
    const auto [end, failure] = std::from_chars(name.data(), name.data() + name.size(), id);
    return failure == std::errc() && end == name.data() + name.size() ? id : 0;
}

std::vector<std::string> commandLine(const std::string& process) {
    std::string bytes;
    std::vector<std::string> words;
    if (readBounded(process + "/cmdline", kMostCommandLine, bytes) != 0) return words;
    for (std::size_t begin = 0; begin < bytes.size();) {
        const std::size_t end = std::min(bytes.find('\0', begin), bytes.size());
        words.push_back(bytes.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}

struct Hold {
    Holder first;
    bool isOwn = false;
};

/// Enters what one process holds of `holds`.
void lookAt(const std::string& process, int id, const OwnPrograms& own, std::map<Inode, Hold>& holds) {
    std::optional<Holder> holder;  // asked for once, and only of those that hold one
    bool isOwn = false;
    for (const Inode inode : socketsOfProcess(process)) {
        const auto found = holds.find(inode);
        if (found == holds.end()) continue;
        if (!holder) {
            holder = Holder{id, linkAt(process + "/exe")};
            isOwn = own.owns(holder->program, commandLine(process));
        }
        if (found->second.first.processId == 0) found->second.first = *holder;
        found->second.isOwn |= isOwn;
    }
}

}  // namespace

OwnPrograms::OwnPrograms(const std::string& packageFolder)
    : folder_(packageFolder + "/"), resolvedFolder_(resolved(packageFolder) + "/") {
    eachEntry(folder_ + "sbin", [this](const char* name) {
        const std::string program = resolved(folder_ + "sbin/" + name);
        if (!program.empty()) programs_.insert(program);
    });
}

bool OwnPrograms::owns(const std::string& program, const std::vector<std::string>& words) const {
    constexpr std::string_view kReplaced = " (deleted)";  // by a newer one while it runs
    std::string_view path = program;
    if (path.ends_with(kReplaced)) path.remove_suffix(kReplaced.size());
    if (path.starts_with(folder_)) return true;
    if (resolvedFolder_ != "/" && path.starts_with(resolvedFolder_)) return true;
    if (programs_.contains(std::string(path))) return true;
    if (nameOf(std::string(path)) != "syslog-ng") return false;
    const std::string control = "--control=" + folder_ + "service/run/";
    for (const std::string& word : words) {
        if (word.starts_with(control) && word.find("/../") == std::string::npos) return true;
    }
    return false;
}

std::vector<Holder> foreignHolders(const std::string& processes, const std::vector<Inode>& sockets,
                                   const OwnPrograms& own) {
    std::map<Inode, Hold> holds;
    for (const Inode inode : sockets)
        holds[inode];
    if (holds.empty()) return {};
    eachEntry(processes, [&](const char* name) {
        const int id = processIdOf(name);
        if (id > 0) lookAt(processes + "/" + name, id, own, holds);
    });
    std::vector<Holder> foreign;
    for (const auto& [inode, hold] : holds) {
        if (!hold.isOwn) foreign.push_back(hold.first);
    }
    return foreign;
}

std::set<Inode> socketsOfOwn(const std::string& processes, const OwnPrograms& own) {
    std::set<Inode> sockets;
    eachEntry(processes, [&](const char* name) {
        const std::string process = processes + "/" + name;
        if (processIdOf(name) > 0 && own.owns(linkAt(process + "/exe"), commandLine(process)))
            sockets.merge(socketsOfProcess(process));
    });
    return sockets;
}

}  // namespace ombrel
