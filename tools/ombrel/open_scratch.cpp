// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/open_scratch.h"

#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <memory>

namespace ombrel {

namespace {

constexpr const char* kScratchName = "/syslogtranstmp-";
constexpr const char* kOwnDescriptors = "/proc/self/fd";

struct CloseFolder {
    void operator()(DIR* folder) const noexcept { (void)::closedir(folder); }
};

}  // namespace

std::optional<OpenScratch> openScratch() {
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir(kOwnDescriptors));
    while (folder != nullptr) {
        const dirent* entry = ::readdir(folder.get());
        if (entry == nullptr) break;
        const std::string link = std::string(kOwnDescriptors) + "/" + entry->d_name;
        std::array<char, PATH_MAX> target{};
        const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
        if (length <= 0) continue;
        const std::string path(target.data(), static_cast<std::size_t>(length));
        struct stat status {};
        if (path.find(kScratchName) != std::string::npos && ::stat(path.c_str(), &status) == 0) {
            return OpenScratch{path, static_cast<unsigned long long>(status.st_size)};
        }
    }
    return std::nullopt;
}

// Only the soft limit is changed, which can be raised again.
void failAllWrites(bool wanted) {
    static rlim_t usual = RLIM_INFINITY;
    (void)std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    if (::getrlimit(RLIMIT_FSIZE, &limit) != 0) return;
    if (wanted) usual = limit.rlim_cur;
    limit.rlim_cur = wanted ? 0 : usual;
    (void)::setrlimit(RLIMIT_FSIZE, &limit);  // else the end of the export is waited for
}

void removeScratch(const std::string& path) {
    (void)::unlink(path.c_str());  // mostly it is gone
}

}  // namespace ombrel
