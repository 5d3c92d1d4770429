// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The scratch folder of a volume.
#pragma once

#include <string>

#include "platform/vesksdk.h"

namespace ombrel {

/// "/@tmp/" on the volume of `path`, which ends before the first "/" behind the first character; empty when
/// there is none.
inline std::string scratchFolderOf(const std::string& path) {
    const auto slash = path.find('/', 1);
    return slash == std::string::npos ? std::string() : path.substr(0, slash) + "/@tmp/";
}

/// Makes the folder, for every user; negative on failure.
inline int makeScratchFolder(const std::string& folder) {
    constexpr int kScratchMode = 0777;
    return VESKFSMkdirP(folder.c_str(), 0, 1, -1, -1, kScratchMode);
}

}  // namespace ombrel
