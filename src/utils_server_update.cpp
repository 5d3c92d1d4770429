// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Applies a change of the receiver settings. Both receivers are down from the first step until their new ports
// are declared and their keys written, so that none of them runs with half a change; what fails in between
// leaves them down. The numbers are the lines that the messages name.
#include <syslog.h>

#include "ombrel/utils.h"
#include "platform/veskfirewall.h"
#include "platform/veskserviceconf.h"
#include "src/no_throw.h"
#include "src/platform_handles.h"
#include "src/service_jobs.h"
#include "src/settings_keys.h"

namespace {

using ombrel::Hash;
using Settings = _SYSLOG_CONF_SETTINGS_tag;

constexpr const char* kUnit = "utils";
constexpr const char* kNotifyService = "syslog-notify";
constexpr int kFailed = -6;

bool isUnchanged(const Settings& current, const Settings& wanted) {
    return current.bsd_enable == wanted.bsd_enable && current.server_port == wanted.server_port &&
           current.server_trans == wanted.server_trans && current.server_ssl == wanted.server_ssl &&
           current.ietf_enable == wanted.ietf_enable && current.server_ietf_port == wanted.server_ietf_port &&
           current.server_ietf_trans == wanted.server_ietf_trans &&
           current.server_ietf_ssl == wanted.server_ietf_ssl && current.server_ca_key == wanted.server_ca_key &&
           current.server_ca_file == wanted.server_ca_file;
}

int withdraw(const char* section, const char* receiver, int line) {
    if (VESKOmbrelPortUnregister(section) >= 0) return 0;
    syslog(LOG_ERR, "%s:%d failed to unregister port resource (%s)", kUnit, line, receiver);
    return kFailed;
}

int declareBsd(const Settings& wanted, const char* description, int line) {
    const auto mode = static_cast<SYSLOG_TRANSMISSION_MODE>(wanted.server_trans);
    if (VESKOmbrelPortRegister("syslog_server", wanted.server_port, mode, description) >= 0) return 0;
    syslog(LOG_ERR, "%s:%d failed to register port resource (BSD)", kUnit, line);
    return kFailed;
}

int declareIetf(const Settings& wanted) {
    const auto mode = static_cast<SYSLOG_TRANSMISSION_MODE>(wanted.server_ietf_trans);
    if (VESKOmbrelPortRegister("syslog_server_ietf", wanted.server_ietf_port, mode,
                               "IETF log receiving of Ombrel") >= 0) {
        return 0;
    }
    syslog(LOG_ERR, "%s:%d failed to register port resource (IETF)", kUnit, 578);
    return kFailed;
}

/// Also those of a receiver that is off. A port that both receivers share is declared once.
int declarePorts(const Settings& wanted) {
    if (wanted.server_port == wanted.server_ietf_port && wanted.server_trans == wanted.server_ietf_trans) {
        return declareBsd(wanted, "BSD/IETF log receiving of Ombrel", 560);
    }
    if (declareBsd(wanted, "BSD log receiving of Ombrel", 569) < 0) return kFailed;
    return declareIetf(wanted);
}

int writeKeys(const Hash& hash, const std::string& path, Settings& wanted) {
    ombrel::SettingsKeys keys(hash.get());
    keys.number("server_port", wanted.server_port);
    keys.transport("server_trans", wanted.server_trans);
    keys.toggle("server_ssl", wanted.server_ssl);
    keys.number("server_ietf_port", wanted.server_ietf_port);
    keys.transport("server_ietf_trans", wanted.server_ietf_trans);
    keys.toggle("server_ietf_ssl", wanted.server_ietf_ssl);
    keys.text("server_ca_key", wanted.server_ca_key);
    keys.text("server_ca_file", wanted.server_ca_file);
    if (!keys.areComplete()) return kFailed;
    return SyslogFileKeySet(hash.get(), path, wanted) < 0 ? kFailed : 0;
}

int switchReceivers(const Settings& current, const Settings& wanted) {
    if (SyslogServiceEnableSet(kBsdJob, "Log receiving (BSD)", current.bsd_enable != 0, wanted.bsd_enable != 0) <
        0) {
        return kFailed;
    }
    if (SyslogServiceEnableSet(kIetfJob, "Log receiving (IETF)", current.ietf_enable != 0,
                               wanted.ietf_enable != 0) < 0) {
        return kFailed;
    }
    return 0;
}

int apply(const std::string& path, const Settings& current, Settings& wanted, Hash& keys) {
    (void)VLIBServiceStop(kNotifyService, 1);  // receiving does not depend on it
    if (stopServiceJob(kBsdJob, 532) < 0 || stopServiceJob(kIetfJob, 536) < 0) return kFailed;
    if (withdraw("syslog_server", "BSD", 545) < 0) return kFailed;
    if (withdraw("syslog_server_ietf", "IETF", 549) < 0) return kFailed;
    if (declarePorts(wanted) < 0) return kFailed;
    (void)VESKFwRuleHup();  // the declarations hold; the next reload takes them up
    keys.reset(VLIBCSzHashAlloc(ombrel::kSettingsHashEntries));
    if (keys == nullptr) {
        syslog(LOG_ERR, "%s:%d Failed to alloc memory", kUnit, 585);
        return kFailed;
    }
    if (writeKeys(keys, path, wanted) < 0) return kFailed;
    return switchReceivers(current, wanted);
}

}  // namespace

int SyslogServerConfSet(const std::string& path, _SYSLOG_CONF_SETTINGS_tag& current,
                        _SYSLOG_CONF_SETTINGS_tag& wanted) {
    Hash keys;
    int result = 0;
    if (!isUnchanged(current, wanted)) {
        result = ombrel::orFailure(kFailed, [&] { return apply(path, current, wanted, keys); });
    }
    (void)VLIBServiceStart(kNotifyService, 1);  // on every path, so that notices come however the update ended
    return result;
}
