// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string>

namespace ombrel {

/// "/a/b" of "/a/b/c", "/" of "/c", "." of "c".
inline std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// "c" of "/a/b/c" and of "c", nothing of "/a/b/".
inline std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

}  // namespace ombrel
