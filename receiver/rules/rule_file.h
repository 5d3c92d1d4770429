// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// All receiving rules at once. Each is what VESKCustomizedRuleGet makes of it, which reads the whole file for one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ombrel/customizerule.h"

namespace ombrel {

/// A hundred thousand rules.
inline constexpr std::size_t kMostRuleFileBytes = 32U << 20;

/// In file order. Of a section or key that stands there more than once the first counts; what stands before the
/// first section, and lines that are neither, are passed over.
std::vector<_CUSTOMIZED_RULE_tag> parseRules(std::string_view text);

/// Without a file there are no rules.
/// @return 0; else an errno, EFBIG for a file that is too large and EINVAL for something that is no file
int readRules(const std::string& path, std::vector<_CUSTOMIZED_RULE_tag>& rules);

}  // namespace ombrel
