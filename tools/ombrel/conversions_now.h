// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <set>
#include <string>

namespace ombrel {

/// The archives that the post-processing tool is at work on now: the paths that it was started with.
std::set<std::string> conversionsNow();

}  // namespace ombrel
