// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Finds every log database of an archive folder: working, archived, and packed in ZIP files.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace ombrel {

struct DatabaseFile {
    std::string shownAs;         ///< where it was found
    std::filesystem::path path;  ///< where it can be opened; a copy for a packed one
};

/// Unpacks ZIP files into `scratch`. Throws std::runtime_error when one cannot be unpacked.
std::vector<DatabaseFile> findDatabases(const std::filesystem::path& folder, const std::filesystem::path& scratch);

}  // namespace ombrel
