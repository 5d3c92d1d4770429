// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The new file takes the place of the old one in one step; at no moment is the name without a file.
#pragma once

#include <string>

namespace ombrel {

/// The name under which the old file is kept beside the new one: PATH.v1.
std::string keptNameOf(const std::string& path);

/// Puts `newPath`, which is on the same file system, in the place of `path` with the owner, mode and time of the
/// old file, which becomes keptNameOf(path), or goes with `removeOld`. May be called again after it was
/// interrupted. Returns what is wrong, empty when it is done; the old file is at its place then.
std::string placeFile(const std::string& path, const std::string& newPath, bool removeOld);

/// The same under the locks that keep writers and movers away; fails when the database has been moved or written
/// to since `changeCounter` was read (see upgrade_database.cpp).
std::string placeDatabase(const std::string& path, const std::string& newPath, bool removeOld);

}  // namespace ombrel
