// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Another program of the product takes over.
#pragma once

#include <string>
#include <vector>

namespace ombrel {

/// Runs the program at `path` in place of this one; its output, its signals and its exit code are its own. Comes
/// back only when it cannot be run, which is said: 77 without the right to, 1 otherwise.
/// @param words  without the program's own name
int execProgram(const std::string& path, const std::vector<std::string>& words);

}  // namespace ombrel
