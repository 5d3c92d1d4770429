// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/support/archive_files.h"

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <stdexcept>

namespace ombrel {
namespace {

namespace fs = std::filesystem;

void unpack(const fs::path& zip, const fs::path& into) {
    fs::create_directories(into);
    std::string program = "unzip";
    std::string quiet = "-qq";
    std::string file = zip.string();
    std::string option = "-d";
    std::string folder = into.string();
    char* const argv[] = {program.data(), quiet.data(), file.data(), option.data(), folder.data(), nullptr};
    pid_t child = 0;
    int status = -1;
    if (posix_spawnp(&child, "unzip", nullptr, nullptr, argv, environ) != 0 ||
        waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error("cannot unpack " + file);
    }
}

}  // namespace

std::vector<DatabaseFile> findDatabases(const fs::path& folder, const fs::path& scratch) {
    std::vector<DatabaseFile> found;
    int packed = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        const std::string extension = entry.path().extension().string();
        if (extension == ".DB") found.push_back({entry.path().string(), entry.path()});
        if (extension != ".ZIP") continue;
        const fs::path into = scratch / std::to_string(packed++);
        unpack(entry.path(), into);
        for (const auto& inside : fs::recursive_directory_iterator(into)) {
            if (inside.path().extension() == ".DB") found.push_back({entry.path().string(), inside.path()});
        }
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.shownAs < b.shownAs; });
    return found;
}

}  // namespace ombrel
