// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The rule file of a test: its sections, and the rules that are in it.
#pragma once

#include <string>

#include "ombrel/customizerule.h"
#include "tests/fake/platform_test.h"

namespace ombrel::test {

using Rule = _CUSTOMIZED_RULE_tag;

inline constexpr const char* kRules = "/var/packages/Ombrel/target/service/conf/custrule.conf";
inline constexpr const char* kRulePorts = "/usr/local/etc/services.d/vesk_syslog.sc";
inline constexpr const char* kRuleJob = "pkg-Ombrel-custrule";
/// What `RuleTest` has in the error record, as it ends a message.
inline const std::string kTail = "[0x001A section.c:99]";

inline Rule lampRule() {
    return {"lamp", "IETF", "tcp", 6514, true, false};
}

inline Rule newRule() {
    return {"roof", "RAW", "udp", 1514, false, true};
}

/// A rule as the library writes it.
inline std::string ruleSection(const Rule& rule) {
    return "[" + rule.name + "]\nformat=\"" + rule.format + "\"\nprotocol=\"" + rule.protocol + "\"\nport=\"" +
           std::to_string(rule.port) + "\"\nssl=\"" + (rule.ssl ? "yes" : "no") + "\"\nenable=\"" +
           (rule.enable ? "yes" : "no") + "\"\n";
}

/// The declaration of its port.
inline std::string rulePort(const std::string& name, const std::string& protocol, const std::string& port) {
    return "[" + name +
           "]\ndisplay_name=\"Ombrel\"\ndescription=\"Customized log receiving of Ombrel\"\nprotocol=\"" +
           protocol + "\"\nport=\"" + port + "\"\n";
}

/// A machine that serves the rule "lamp" and another one behind it.
class RuleTest : public PlatformTest {
protected:
    RuleTest() {
        platform.error = {0x1a, "section.c", 99};
        platform.addFile(kRules, ruleSection(lampRule()) + other);
        platform.addFile(kRulePorts, rulePort("lamp", "tcp", "6514") + otherPort);
        platform.jobs[kRuleJob] = 1;
    }
    [[nodiscard]] std::string rules() const { return platform.read(kRules).value_or("(none)"); }
    [[nodiscard]] std::string ports() const { return platform.read(kRulePorts).value_or("(none)"); }

    const std::string other = ruleSection({"door", "BSD", "udp", 2514, false, true});
    const std::string otherPort = rulePort("door", "udp", "2514");
};

template <typename Case>
class RuleTestWith : public RuleTest, public ::testing::WithParamInterface<Case> {};

}  // namespace ombrel::test
