// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Which file system a path lies on, from the mount table of this process (/proc/self/mountinfo).
#pragma once

namespace ombrel {

/// A FileSystemKind, or -1 with the reason in the error record and `errno`.
int fileSystemKindOf(const char* path);

}  // namespace ombrel
