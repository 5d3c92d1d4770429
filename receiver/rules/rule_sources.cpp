// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/rules/rule_sources.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <optional>
#include <utility>

namespace ombrel {

namespace {

struct Format {
    const char* name;
    bool counted;
    bool raw;
};

constexpr std::array<Format, 3> kFormats = {{{"BSD", false, false}, {"IETF", true, false}, {"RAW", false, true}}};

// The library keeps texts of any length; a line of a log is read by people.
constexpr std::size_t kMostShown = 200;

bool isSameWord(std::string_view text, std::string_view upperCase) {
    return std::equal(text.begin(), text.end(), upperCase.begin(), upperCase.end(),
                      [](char a, char b) { return std::toupper(static_cast<unsigned char>(a)) == b; });
}

const Format* formatOf(const std::string& text) {
    const auto* const found = std::find_if(kFormats.begin(), kFormats.end(),
                                           [&](const Format& format) { return isSameWord(text, format.name); });
    return found == kFormats.end() ? nullptr : found;
}

std::string shown(const std::string& text) {
    return text.size() > kMostShown ? text.substr(0, kMostShown) + "..." : text;
}

std::string pair(const char* key, const std::string& value) {
    return std::string(key) + "=\"" + shown(value) + "\"";
}

class Chooser {
public:
    Chooser(RuleSources& chosen, const std::string& tlsTrouble) : chosen_(chosen), tlsTrouble_(tlsTrouble) {}

    void take(const _CUSTOMIZED_RULE_tag& rule) {
        const Format* const format = formatOf(rule.format);
        std::string wrong = whatIsWrong(rule, format);
        const bool udp = rule.protocol == "udp";
        if (wrong.empty()) wrong = whoHasThePort(rule, udp);
        if (wrong.empty() && rule.ssl) wrong = tlsTrouble_;
        if (!wrong.empty()) {
            chosen_.remarks.push_back(leftOutLine(rule.name, wrong));
            return;
        }
        if (!udp && rule.protocol != "tcp") {
            chosen_.remarks.push_back("rule \"" + shown(rule.name) + "\": " + pair("protocol", rule.protocol) +
                                      " is taken for tcp; expected udp or tcp");
        }
        const SourceKind stream = rule.ssl ? SourceKind::kTls : SourceKind::kTcp;
        Source source;
        source.kind = udp ? SourceKind::kUdp : stream;
        source.port = static_cast<std::uint16_t>(rule.port);
        source.counted = format->counted && !udp;
        source.raw = format->raw;
        source.portKey = "port";
        source.rule = rule.name;
        chosen_.sources.push_back(std::move(source));
    }

private:
    static std::string whatIsWrong(const _CUSTOMIZED_RULE_tag& rule, const Format* format) {
        if (format == nullptr) return pair("format", rule.format) + " is unknown; expected BSD, IETF or RAW";
        if (rule.port < 1 || rule.port > 65535)
            return pair("port", std::to_string(rule.port)) + " is no port; expected 1 to 65535";
        if (rule.ssl && rule.protocol == "udp")
            return pair("ssl", "yes") + " needs " + pair("protocol", "tcp") +
                   ", but it is \"udp\": there is no TLS over datagrams";
        return {};
    }
    // Enters this one where nobody has it.
    std::string whoHasThePort(const _CUSTOMIZED_RULE_tag& rule, bool udp) {
        if (ports_.size() == kMostServedRules)
            return "more than " + std::to_string(kMostServedRules) + " rules are enabled";
        const auto [first, isNew] = ports_.try_emplace({udp, rule.port}, &rule.name);
        if (isNew) return {};
        return pair("port", std::to_string(rule.port)) + " over " + (udp ? "udp" : "tcp") + " is that of rule \"" +
               shown(*first->second) + "\", which stands before it; each needs its own";
    }

    RuleSources& chosen_;
    const std::string& tlsTrouble_;
    std::map<std::pair<bool, int>, const std::string*> ports_;
};

}  // namespace

std::string leftOutLine(const std::string& rule, const std::string& reason) {
    return "rule \"" + shown(rule) + "\" is left out: " + reason;
}

RuleSources chooseRuleSources(const std::vector<_CUSTOMIZED_RULE_tag>& rules, const std::string& tlsTrouble) {
    RuleSources chosen;
    Chooser chooser(chosen, tlsTrouble);
    for (const _CUSTOMIZED_RULE_tag& rule : rules) {
        if (rule.enable) chooser.take(rule);
    }
    return chosen;
}

}  // namespace ombrel
