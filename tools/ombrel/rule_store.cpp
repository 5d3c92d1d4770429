// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/rule_store.h"

#include "platform/veskcore.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/rule_checks.h"

namespace ombrel {

std::optional<std::list<std::string>> ruleNames() {
    std::list<std::string> names;
    VLIBCErrSetEx(0, "", 0);
    if (VESKCustomizedRuleEnum(names) < 0) return std::nullopt;
    return names;
}

std::optional<RuleRecord> readRule(const std::string& name) {
    RuleRecord rule;
    VLIBCErrSetEx(0, "", 0);
    if (VESKCustomizedRuleGet(name, rule) < 0) return std::nullopt;
    return rule;
}

std::optional<PortFault> whyNoPort(const std::string& service, const RuleRecord& rule) {
    return whyNoPort(service, rule.port, transportOf(rule));
}

std::optional<PortFault> whyNoPort(const std::string& service, int port, const std::string& protocol) {
    VLIBCErrSetEx(0, "", 0);
    if (VESKCustomizedRulePortCheck(service, port, protocol) == 0) return std::nullopt;
    const int code = VLIBCErrGet();
    const std::string text = "port " + std::to_string(port) + "/" + protocol;
    if (code == 0) {
        return PortFault{true, text + " is declared by another rule or service or held by another program"};
    }
    return PortFault{false, "whether " + text + " is free cannot be told" + reasonOf(code)};
}

std::string reasonOf(int code) {
    const std::string text = errorText(code);
    return text.empty() ? "" : " (" + text + ")";
}

}  // namespace ombrel
