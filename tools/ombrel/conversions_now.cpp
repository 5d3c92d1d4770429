// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/conversions_now.h"

#include <fcntl.h>

#include <array>

#include "linux/common/fd.h"
#include "linux/common/folder_stream.h"

namespace ombrel {

namespace {

/// The words of a process, each with its NUL (proc(5)); empty of one that is gone.
std::string wordsOf(int processes, const std::string& number) {
    const Fd file(::openat(processes, (number + "/cmdline").c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 8192> bytes{};  // a path is shorter
    const ssize_t got = file ? ::read(file.get(), bytes.data(), bytes.size()) : -1;
    return got > 0 ? std::string(bytes.data(), static_cast<std::size_t>(got)) : "";
}

}  // namespace

std::set<std::string> conversionsNow() {
    constexpr std::string_view kTool = "vesksyslogpostproc";
    constexpr std::string_view kOption = "--dbpath=";
    std::set<std::string> paths;
    const FolderStream processes(::opendir("/proc"));
    if (!processes) return paths;
    while (const dirent* entry = ::readdir(processes.get())) {
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
        const std::string words = wordsOf(::dirfd(processes.get()), entry->d_name);
        const std::string program = words.substr(0, words.find('\0'));
        if (!program.ends_with(kTool) || words.size() <= program.size() + 1) continue;
        const std::size_t second = program.size() + 1;
        const std::string option = words.substr(second, words.find('\0', second) - second);
        if (option.starts_with(kOption)) paths.insert(option.substr(kOption.size()));
    }
    return paths;
}

}  // namespace ombrel
