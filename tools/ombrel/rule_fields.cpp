// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/rule_fields.h"

#include <strings.h>

#include <algorithm>

#include "linux/common/port_list.h"
#include "linux/common/text_escape.h"
#include "tools/ombrel/key_value_words.h"

namespace ombrel {

namespace {

struct RuleFormat {
    static constexpr const char* kAllowed = "BSD, IETF or RAW";
    static std::string print(const RuleRecord& record) { return record.format; }
    /// In any letter case, and kept as it is written.
    static bool parse(std::string_view text, RuleRecord& record) {
        for (const std::string_view known : {"BSD", "IETF", "RAW"}) {
            if (text.size() != known.size() || strncasecmp(text.data(), known.data(), known.size()) != 0) continue;
            record.format = text;
            return true;
        }
        return false;
    }
};

/// Any other text than udp would be served over TCP, which a misspelt udp does not mean.
struct Protocol {
    static constexpr const char* kAllowed = "udp or tcp";
    static std::string print(const RuleRecord& record) { return record.protocol; }
    static bool parse(std::string_view text, RuleRecord& record) {
        if (text != "udp" && text != "tcp") return false;
        record.protocol = text;
        return true;
    }
};

struct RulePort {
    static constexpr const char* kAllowed = "a port from 1 to 65535";
    static std::string print(const RuleRecord& record) { return std::to_string(record.port); }
    static bool parse(std::string_view text, RuleRecord& record) {
        const std::optional<int> port = parsePort(text);
        if (port) record.port = *port;
        return port.has_value();
    }
};

template <bool RuleRecord::*kMember>
struct RuleSwitch {
    static constexpr const char* kAllowed = "yes or no";
    static std::string print(const RuleRecord& record) { return record.*kMember ? "yes" : "no"; }
    static bool parse(std::string_view text, RuleRecord& record) {
        if (text != "yes" && text != "no") return false;
        record.*kMember = text == "yes";
        return true;
    }
};

template <typename Kind>
constexpr RuleField field(const char* name) {
    return {name, Kind::kAllowed, Kind::print, Kind::parse};
}

constexpr RuleField kRuleFields[] = {
    field<RuleFormat>("format"),
    field<Protocol>("protocol"),
    field<RulePort>("port"),
    field<RuleSwitch<&RuleRecord::ssl>>("ssl"),
    field<RuleSwitch<&RuleRecord::enable>>("enable"),
};

}  // namespace

std::span<const RuleField> ruleFields() {
    return kRuleFields;
}

const RuleField* findRuleField(std::string_view name) {
    const auto* found = std::find_if(std::begin(kRuleFields), std::end(kRuleFields),
                                     [name](const RuleField& field) { return name == field.name; });
    return found == std::end(kRuleFields) ? nullptr : found;
}

std::optional<std::string> applyRuleWords(const std::vector<std::string>& words, RuleRecord& record) {
    return applyKeyValues(words, findRuleField, {"no key", "expected format, protocol, port, ssl or enable"},
                          record);
}

std::string ruleLine(const RuleField& field, const RuleRecord& record) {
    return std::string(field.name) + "=\"" + escapeForLine(field.print(record)) + "\"";
}

std::string nameLine(const RuleRecord& record) {
    return "name=\"" + escapeForLine(record.name) + "\"";
}

}  // namespace ombrel
