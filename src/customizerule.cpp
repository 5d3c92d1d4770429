// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The customized receiving rules: a section of the rule file each, whose port is declared whether the rule is on
// or not. No change undoes its earlier steps. The numbers are the lines that the messages name.
#include "ombrel/customizerule.h"

#include <syslog.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "ombrel/utils.h"
#include "src/customizerule_control.h"
#include "src/failed_call.h"
#include "src/fixed_paths.h"
#include "src/no_throw.h"
#include "src/platform_handles.h"
#include "src/settings_keys.h"

namespace {

using ombrel::Hash;
using ombrel::kSettingsLineFormat;
using ombrel::lend;
using ombrel::List;
using ombrel::logFailedCall;
using ombrel::orFailure;
using Rule = _CUSTOMIZED_RULE_tag;

constexpr const char* kUnit = "customizerule";
constexpr int kHashEntries = 1024;
constexpr int kListEntries = 1024;

/// The lines of the messages of one form of the enumeration.
struct EnumerationLines {
    int noFile;
    int noMemory;
    int notRead;
};

int enumerate(const EnumerationLines& lines, std::list<std::string>& names) {
    if (VLIBCFileExist(kRuleFile) == 0) {
        syslog(LOG_INFO, "%s:%d %s doesn't exist", kUnit, lines.noFile, kRuleFile);
        return 0;
    }
    List sections(VLIBCSzListAlloc(kListEntries));
    if (sections == nullptr) {
        syslog(LOG_ERR, "%s:%d Fail to allocate memory", kUnit, lines.noMemory);
        return -1;
    }
    if (lend(sections, [](VLIBSZLIST** list) { return VLIBCFileEnumSection(kRuleFile, list); }) < 0) {
        return logFailedCall("%s:%d Fail to enumerate customized rule config[0x%04X %s:%d]", kUnit, lines.notRead);
    }
    std::list<std::string> found;
    for (int i = 0; i < sections->count; ++i) {
        if (const char* name = VLIBCSzListGet(sections.get(), i)) found.emplace_back(name);
    }
    names.swap(found);
    return 0;
}

/// Reads the keys of a section into the fields of a rule; an absent key leaves its field as it is.
class RuleKeys {
public:
    explicit RuleKeys(const Hash& keys) : keys_(keys) {}

    void text(const char* key, std::string& field) const {
        if (const char* value = VLIBCSzHashGetValue(keys_.get(), key)) field = value;
    }
    void number(const char* key, int& field) const {
        const char* value = VLIBCSzHashGetValue(keys_.get(), key);
        if (value != nullptr) field = static_cast<int>(std::strtol(value, nullptr, 10));  // narrowed to 32 bits
    }
    void toggle(const char* key, bool& field) const {
        if (const char* value = VLIBCSzHashGetValue(keys_.get(), key)) field = std::string_view(value) == "yes";
    }

private:
    const Hash& keys_;
};

int read(const std::string& name, Rule& rule) {
    Hash hash(VLIBCSzHashAlloc(kHashEntries));
    if (hash == nullptr) {
        syslog(LOG_ERR, "%s:%d Fail to allocate memory", kUnit, 134);
        return -1;
    }
    if (lend(hash, [&](VLIBSZHASH** keys) { return VLIBCFileGetSection(kRuleFile, name.c_str(), keys); }) < 0) {
        return logFailedCall("%s:%d Fail to do VLIBCFileGetSection[0x%04X %s:%d]", kUnit, 138);
    }
    rule.name = name;
    const RuleKeys keys(hash);
    keys.text("format", rule.format);
    keys.text("protocol", rule.protocol);
    keys.number("port", rule.port);
    keys.toggle("ssl", rule.ssl);
    keys.toggle("enable", rule.enable);
    return 0;
}

/// False when a key found no room: a part of a rule must not be written.
bool fill(const Hash& hash, const Rule& rule) {
    ombrel::SettingsKeys keys(hash.get());
    keys.text("format", rule.format);
    keys.text("protocol", rule.protocol);
    keys.number("port", rule.port);
    keys.text("ssl", rule.ssl ? "yes" : "no");
    keys.text("enable", rule.enable ? "yes" : "no");
    return keys.areComplete();
}

int declarePort(const Rule& rule, int line) {
    const auto mode = rule.protocol == "udp" ? SYSLOG_TRANSMISSION_UDP : SYSLOG_TRANSMISSION_TCP;
    if (VESKOmbrelPortRegister(rule.name, rule.port, mode, "Customized log receiving of Ombrel") >= 0) return 0;
    syslog(LOG_ERR, "%s:%d Fail to create custimized rule port (%s)", kUnit, line, rule.name.c_str());
    return -1;
}

int withdrawPort(const std::string& name, int line) {
    if (VESKOmbrelPortUnregister(name) >= 0) return 0;
    syslog(LOG_ERR, "%s:%d Fail to remove custimized rule port (%s)", kUnit, line, name.c_str());
    return -1;
}

int restart(const std::string& name, int line) {
    if (CustomizedRuleServiceRestart() >= 0) return 0;
    syslog(LOG_ERR, "%s:%d Fail to start custimized rule service (%s)", kUnit, line, name.c_str());
    return -1;
}

int add(const Rule& rule) {
    const Hash keys(VLIBCSzHashAlloc(kHashEntries));
    if (keys == nullptr) {
        syslog(LOG_ERR, "%s:%d Fail to allocate memory", kUnit, 180);
        return -1;
    }
    if (!fill(keys, rule) ||
        VLIBCFileAddSection(kRuleFile, rule.name.c_str(), keys.get(), kSettingsLineFormat) < 0) {
        return logFailedCall("%s:%d Fail create custimized rule config (%s)[0x%04X %s:%d]", kUnit, 196,
                             rule.name.c_str());
    }
    if (declarePort(rule, 205) < 0) return -1;
    return restart(rule.name, 211);
}

int replace(const std::string& oldName, const Rule& rule) {
    const Hash keys(VLIBCSzHashAlloc(kHashEntries));
    if (keys == nullptr) {
        syslog(LOG_ERR, "%s:%d Fail to allocate memory", kUnit, 227);
        return -1;
    }
    if (!fill(keys, rule) ||
        VLIBCFileSetSection(kRuleFile, oldName.c_str(), rule.name.c_str(), keys.get(), kSettingsLineFormat) < 0) {
        return logFailedCall("%s:%d Fail to set custimized rule config (%s)[0x%04X %s:%d]", kUnit, 244,
                             rule.name.c_str());
    }
    if (withdrawPort(oldName, 23) < 0 || declarePort(rule, 30) < 0) {
        syslog(LOG_ERR, "%s:%d Fail to set custimized rule port (%s)", kUnit, 250, rule.name.c_str());
        return -1;
    }
    return restart(rule.name, 256);
}

int remove(const std::string& name) {
    if (VLIBCFileRemoveSection(kRuleFile, name.c_str()) < 0) {
        return logFailedCall("%s:%d Fail to remove custimized rule config (%s)[0x%04X %s:%d]", kUnit, 273,
                             name.c_str());
    }
    if (withdrawPort(name, 279) < 0) return -1;
    return restart(name, 285);
}

}  // namespace

int VESKCustomizedRuleGet(const std::string& name, _CUSTOMIZED_RULE_tag& rule) {
    return orFailure(-1, [&] { return read(name, rule); });
}

int VESKCustomizedRuleAdd(const _CUSTOMIZED_RULE_tag& rule) {
    return orFailure(-1, [&] { return add(rule); });
}

int VESKCustomizedRuleSet(const std::string& oldName, const _CUSTOMIZED_RULE_tag& rule) {
    return orFailure(-1, [&] { return replace(oldName, rule); });
}

int VESKCustomizedRuleDel(const std::string& name) {
    return orFailure(-1, [&] { return remove(name); });
}

int VESKCustomizedRuleEnum(std::list<std::string>& names) {
    return orFailure(-1, [&] { return enumerate({70, 76, 81}, names); });
}

std::list<std::string> VESKCustomizedRuleEnum() {
    std::list<std::string> names;
    (void)orFailure(-1, [&] { return enumerate({104, 109, 114}, names); });  // a failure leaves the list empty
    return names;
}

int VESKCustomizedRuleNameCheck(const std::string& name) {
    const std::list<std::string> names = VESKCustomizedRuleEnum();
    return std::find(names.begin(), names.end(), name) == names.end() ? 0 : -1;
}
