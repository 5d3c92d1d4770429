// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/vesksdk/user_shares.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include "linux/common/fd.h"
#include "linux/common/folder_stream.h"

namespace ombrel {

namespace {

constexpr std::size_t kMaxFileSize = std::size_t{10} * 1024;  // Samba reads no larger ones
constexpr mode_t kSticky = S_ISVTX;

using Folder = FolderStream;

std::string parameter(const ShareDefinitions& definitions, std::string_view name) {
    const auto found = definitions.global.find(name);
    return found == definitions.global.end() ? "" : found->second;
}

/// smb.conf(5), "usershare path": owned by root, with the sticky bit, not writable by others.
bool isSafe(int folder) {
    struct stat info {};
    return ::fstat(folder, &info) == 0 && info.st_uid == 0 && (info.st_mode & kSticky) != 0 &&
           (info.st_mode & S_IWOTH) == 0;
}

/// The text of a share's file and its owner; empty for anything but a small plain file.
std::string readShareFile(int folder, const char* name, uid_t& owner) {
    const Fd file(::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
    owner = info.st_uid;
    std::array<char, kMaxFileSize + 1> buffer;
    std::size_t size = 0;
    while (size < buffer.size()) {
        const ssize_t count = ::read(file.get(), buffer.data() + size, buffer.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        size += static_cast<std::size_t>(count);
    }
    return size > kMaxFileSize ? std::string() : std::string(buffer.data(), size);
}

/// Whether `path` is one of, or below one of, the folders of a list of smb.conf, set apart by blanks or commas.
bool isBelowAny(std::string_view path, std::string_view list) {
    constexpr std::string_view kSeparators = ", \t";
    for (std::size_t begin = 0; (begin = list.find_first_not_of(kSeparators, begin)) != std::string_view::npos;) {
        const std::size_t end = std::min(list.find_first_of(kSeparators, begin), list.size());
        std::string_view prefix = list.substr(begin, end - begin);
        while (prefix.ends_with('/'))
            prefix.remove_suffix(1);
        begin = end;
        if (path.starts_with(prefix) && (path.size() == prefix.size() || path[prefix.size()] == '/')) return true;
    }
    return false;
}

bool isAllowed(const Share& share, uid_t fileOwner, const ShareDefinitions& definitions) {
    if (isBelowAny(share.path, parameter(definitions, "usershare prefix deny list"))) return false;
    const std::string allowed = parameter(definitions, "usershare prefix allow list");
    if (!allowed.empty() && !isBelowAny(share.path, allowed)) return false;
    struct stat info {};
    if (::stat(share.path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return false;
    return fileOwner == 0 || info.st_uid == fileOwner || parameter(definitions, "usershare owner only") == "No";
}

}  // namespace

std::vector<Share> userShares(const ShareDefinitions& definitions) {
    const std::string path = parameter(definitions, "usershare path");
    const std::string limitText = parameter(definitions, "usershare max shares");
    const std::size_t limit = std::strtoul(limitText.c_str(), nullptr, 10);
    std::vector<Share> result;
    if (path.empty() || limit == 0) return result;
    const Folder folder(::opendir(path.c_str()));
    if (!folder || !isSafe(::dirfd(folder.get()))) return result;
    while (const dirent* entry = ::readdir(folder.get())) {
        if (entry->d_name[0] == '.') continue;
        uid_t owner = 0;
        const Share share =
            parseUserShare(entry->d_name, readShareFile(::dirfd(folder.get()), entry->d_name, owner));
        if (!share.path.empty() && isAllowed(share, owner, definitions)) result.push_back(share);
    }
    std::sort(result.begin(), result.end(), [](const Share& a, const Share& b) { return a.name < b.name; });
    if (result.size() > limit) result.resize(limit);
    return result;
}

}  // namespace ombrel
