// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// An open folder that closes itself.
#pragma once

#include <dirent.h>

#include <memory>

namespace ombrel {

struct FolderClose {
    void operator()(DIR* folder) const noexcept { (void)::closedir(folder); }
};
/// Of opendir(3) or fdopendir(3).
using FolderStream = std::unique_ptr<DIR, FolderClose>;

}  // namespace ombrel
