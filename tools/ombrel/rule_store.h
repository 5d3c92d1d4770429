// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the library says of the customized rules and of their ports.
#pragma once

#include <list>
#include <optional>
#include <string>

#include "tools/ombrel/rule_fields.h"

namespace ombrel {

/// In file order, none without a rule file; nothing when it cannot be read, which the error record explains.
std::optional<std::list<std::string>> ruleNames();
/// A rule of the file; a key that it lacks is empty, 0 or off. Nothing when the file cannot be read.
std::optional<RuleRecord> readRule(const std::string& name);

/// Why a rule that is known as `service` cannot have its port; nothing when it is free.
struct PortFault {
    bool isTaken = false;  ///< false: it could not be told
    std::string what;
};
std::optional<PortFault> whyNoPort(const std::string& service, const RuleRecord& rule);
/// The same of any port; `protocol` is "udp" or "tcp".
std::optional<PortFault> whyNoPort(const std::string& service, int port, const std::string& protocol);

/// What the error record says, in parentheses behind a blank; empty when it says nothing.
std::string reasonOf(int code);

}  // namespace ombrel
