// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// User-defined receiving rules: each names a port, a transport, a format and TLS, and is on or off.
// Results are 0 for success and -1 for failure (logged) unless said otherwise; a failure undoes nothing.
// Callers that change the rules take turns.
#pragma once

#include <list>
#include <string>

#include "ombrel/export.h"

/// One receiving rule.
struct _CUSTOMIZED_RULE_tag {
    std::string name;      ///< unique, byte for byte
    std::string format;    ///< log format, kept as given
    std::string protocol;  ///< "udp"; any other text means TCP
    int port{};
    bool ssl{};
    bool enable{};
};

/// What `VESKCustomziedRuleControl` does with a rule; any value but 0 disables it.
enum _CUSTOMIZED_RULE_CMD_tag : int {
    CUSTOMIZED_RULE_ENABLE = 0,
    CUSTOMIZED_RULE_DISABLE = 1,
};

/// Reads one rule; without a section of that name only `rule.name` is set, and the result is 0.
OMBREL_EXPORT int VESKCustomizedRuleGet(const std::string& name, _CUSTOMIZED_RULE_tag& rule);
/// Adds a rule, declares its port and restarts the rule job.
OMBREL_EXPORT int VESKCustomizedRuleAdd(const _CUSTOMIZED_RULE_tag& rule);
/// Replaces the rule `oldName` by `rule`, which may carry a new name.
OMBREL_EXPORT int VESKCustomizedRuleSet(const std::string& oldName, const _CUSTOMIZED_RULE_tag& rule);
/// Deletes a rule and its port declaration and restarts the rule job.
OMBREL_EXPORT int VESKCustomizedRuleDel(const std::string& name);
/// Lists the rule names in file order. Without a rule file `names` is left as it is, and the result is 0.
OMBREL_EXPORT int VESKCustomizedRuleEnum(std::list<std::string>& names);
/// The same as a list; empty on failure.
OMBREL_EXPORT std::list<std::string> VESKCustomizedRuleEnum();
/// 0 when no rule has that name, -1 when it is taken.
OMBREL_EXPORT int VESKCustomizedRuleNameCheck(const std::string& name);

/// Switches one rule on or off; the rule job is restarted when that is a change.
OMBREL_EXPORT int VESKCustomziedRuleControl(const std::string& name, _CUSTOMIZED_RULE_CMD_tag cmd);
/// 0 when the port is free for that service, -1 when it conflicts or the test fails.
OMBREL_EXPORT int VESKCustomizedRulePortCheck(const std::string& serviceName, int port,
                                              const std::string& protocol);
/// 0 when the archive folder of the settings is an existing folder, -1 otherwise (not logged).
OMBREL_EXPORT int VESKCustomizedRuleShareCheck();
