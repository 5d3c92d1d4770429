// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The new file takes the place of the old one in one step; at no moment is the name without a file.
#pragma once

#include <string>

#include "tools/ombrel-upgrade/old_database.h"

namespace ombrel {

/// The name under which the old file is kept beside the new one: PATH.v1.
std::string keptNameOf(const std::string& path);

/// Whether placeFile() could do its work: the file is a regular one, its folder can be written to, and no other
/// file has the kept name already. To be asked before hours are spent. Returns what is wrong, empty when nothing
/// is.
std::string checkReplaceable(const std::string& path, bool removeOld);

/// Puts `newPath`, which is on the same file system and open nowhere, in the place of `path` with the owner, mode
/// and times of the old file, which becomes keptNameOf(path), or goes with `removeOld`. May be called again after
/// it was interrupted. Returns what is wrong, empty when it is done; the old file is at its place then.
std::string placeFile(const std::string& path, const std::string& newPath, bool removeOld);

enum class Placed {
    kDone,
    kChanged,  ///< somebody has written to the old database meanwhile
    kFailed,
};

/// The same for a database, under the locks that keep writers and movers away.
/// @param oldVersion  OldDatabase::version() of the state that `newPath` was made of
/// @param error       what is wrong, unless it is done
Placed placeDatabase(OldDatabase& old, long long oldVersion, const std::string& newPath, bool removeOld,
                     std::string& error);

}  // namespace ombrel
