// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Replaces a file as a whole: whoever opens it sees the old bytes or the new ones, also after a power
// failure or a kill at any moment.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace ombrel {

/// Writes `bytes` beside `name` in the open folder, syncs, renames over `name` and syncs the folder.
/// The caller holds the FolderLock of that folder: all writers there share one temporary name, so that
/// what a killed writer left is swept up by the next.
/// @param old   the file that is replaced: an open descriptor whose owner, mode and extended attributes
///              (access lists among them) the new file gets; -1 when there is none
/// @param mode  permission bits when there is none
/// @return 0; -1 with errno set and entered in the error record, the old file is then untouched and no
///         temporary file is left (but for a failed last sync, after which the new file may stand)
int replaceFile(int folder, const std::string& name, std::string_view bytes, int old, mode_t mode);

}  // namespace ombrel
