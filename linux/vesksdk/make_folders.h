// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <string>

namespace ombrel {

/// Makes a folder and its missing parents; several processes may do so at once.
/// @param uid, gid  of the folders made here, -1 leaves them
/// @return 0, or -1 with the reason in the error record and `errno`; parents made so far stay
int makeFolders(const std::string& path, int uid, int gid, int mode);

}  // namespace ombrel
