// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Around the customized rules: the restart of their job, the switch of one rule, and what is checked before a
// rule is made. The numbers are the lines that the messages name.
#include "src/customizerule_control.h"

#include <sys/stat.h>
#include <syslog.h>

#include <array>
#include <cstdio>
#include <string_view>

#include "ombrel/customizerule.h"
#include "ombrel/utils.h"
#include "src/failed_call.h"
#include "src/fixed_paths.h"
#include "src/no_throw.h"
#include "src/platform_handles.h"
#include "src/service_jobs.h"

namespace {

using ombrel::lend;
using ombrel::logFailedCall;
using ombrel::ServicePorts;

constexpr const char* kUnit = "customizerule";
constexpr const char* kEnableKey = "enable";
constexpr std::size_t kSwitchSize = 8;
constexpr std::size_t kTextSize = 1024;
constexpr int kConflictFlags = 28;
constexpr int kConflict = 1;

/// Only the exact texts that a switch writes are its states; any other value is written anew.
bool isAlready(std::string_view value, _CUSTOMIZED_RULE_CMD_tag cmd) {
    return (value == "yes" && cmd == CUSTOMIZED_RULE_ENABLE) || (value == "no" && cmd == CUSTOMIZED_RULE_DISABLE);
}

int testArchiveFolder() {
    _SYSLOG_CONF_SETTINGS_tag settings;
    if (SyslogConfGet(kSettingsFile, settings) < 0) return -1;
    struct stat64 status {};
    if (stat64(settings.arch_dest.c_str(), &status) != 0) return -1;
    return S_ISDIR(status.st_mode) ? 0 : -1;
}

}  // namespace

int CustomizedRuleServiceRestart() {
    if (VLIBServicectlJobStop(kCustomRuleJob) < 0) {
        return logFailedCall("%s:%d Fail to stop service (%s)[0x%04X %s:%d]", kUnit, 45, kCustomRuleJob);
    }
    if (VLIBServicectlJobStart(kCustomRuleJob) < 0) {
        return logFailedCall("%s:%d Fail to start service (%s)[0x%04X %s:%d]", kUnit, 50, kCustomRuleJob);
    }
    return 0;
}

int VESKCustomziedRuleControl(const std::string& name, _CUSTOMIZED_RULE_CMD_tag cmd) {
    std::array<char, kSwitchSize> value{};
    const bool isRead =
        VLIBCFileGetSectionValue(kRuleFile, name.c_str(), kEnableKey, value.data(), kSwitchSize) == 0;
    if (isRead && isAlready(value.data(), cmd)) return 0;
    const char* wanted = cmd == CUSTOMIZED_RULE_ENABLE ? "yes" : "no";
    if (VLIBCFileSetSectionValue(kRuleFile, name.c_str(), kEnableKey, wanted) < 0) {
        return logFailedCall("%s:%d Fail set section to file[0x%04X %s:%d]", kUnit, 316);
    }
    if (CustomizedRuleServiceRestart() < 0) {
        syslog(LOG_ERR, "%s:%d Fail to start custimized rule service (%s)", kUnit, 322, name.c_str());
        return -1;
    }
    return 0;
}

int VESKCustomizedRulePortCheck(const std::string& serviceName, int port, const std::string& protocol) {
    std::array<char, kTextSize> service{};
    std::array<char, kTextSize> portText{};
    (void)std::snprintf(service.data(), service.size(), "%s", serviceName.c_str());  // a longer name is cut
    (void)std::snprintf(portText.data(), portText.size(), "%d", port);
    ServicePorts ports;
    const int result = lend(ports, [&](VESK_SERVICE_PORTS** taken) {
        return VLIBIsPortConflict(service.data(), portText.data(), protocol.c_str(), kConflictFlags, taken);
    });
    if (result < 0) {
        return logFailedCall("%s:%d Fail to check if port conflict (%s, %d)[0x%04X %s:%d]", kUnit, 349,
                             serviceName.c_str(), port);
    }
    return result == kConflict ? -1 : 0;
}

int VESKCustomizedRuleShareCheck() {
    return ombrel::orFailure(-1, [] { return testArchiveFolder(); });
}
