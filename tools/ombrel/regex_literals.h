// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a text has to hold for a regular expression to match it. Pure.
#pragma once

#include <re2/re2.h>

#include <string>
#include <vector>

namespace ombrel {

/// Texts that each match contains, whatever the case of their ASCII letters; the longest first, none where there
/// is none to be told. The pattern has to be a good one.
std::vector<std::string> requiredLiterals(const std::string& pattern, const RE2::Options& options);

}  // namespace ombrel
