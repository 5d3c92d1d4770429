// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// From receiving rules to what is listened on. Pure.
#pragma once

#include <string>
#include <vector>

#include "ombrel/customizerule.h"
#include "receiver/launcher/receiver_config.h"

namespace ombrel {

/// More enabled rules than these are left out: each costs a socket and a reader.
inline constexpr std::size_t kMostServedRules = 10'000;

struct RuleSources {
    std::vector<Source> sources;
    std::vector<std::string>
        remarks;  ///< a line for each enabled rule that is left out, or served otherwise than meant
};

/// The enabled rules in file order, one source each:
/// - format "BSD" (lines), "IETF" (counted frames) or "RAW" (lines, kept whole), in any letter case;
/// - protocol "udp", any other text TCP, as the ports of rules are declared;
/// - ssl: TLS over TCP, unless `tlsTrouble` says why there is none;
/// - of those with the same port and transport (TLS is TCP) the first.
RuleSources chooseRuleSources(const std::vector<_CUSTOMIZED_RULE_tag>& rules, const std::string& tlsTrouble);

/// What is said of a rule that is left out.
std::string leftOutLine(const std::string& rule, const std::string& reason);

}  // namespace ombrel
