// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_settings.h"

#include <fcntl.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "linux/common/fd.h"
#include "ombrel/utils.h"
#include "receiver/rules/rule_file.h"
#include "receiver/rules/rule_sources.h"
#include "receiver/visible_log.h"

namespace ombrel {

namespace {

// What the settings say of one receiver of the network, and under which keys.
struct NetworkSettings {
    const char* name;
    const char* portKey;
    int port;
    const char* transportKey;
    int transport;
    const char* sslKey;
    int ssl;
};

NetworkSettings networkSettings(std::string_view name, const _SYSLOG_CONF_SETTINGS_tag& record) {
    if (name == "ietf") {
        return {"ietf",
                "server_ietf_port",
                record.server_ietf_port,
                "server_ietf_trans",
                record.server_ietf_trans,
                "server_ietf_ssl",
                record.server_ietf_ssl};
    }
    return {"bsd",        "server_port",    record.server_port, "server_trans", record.server_trans,
            "server_ssl", record.server_ssl};
}

std::string setting(const char* key, const std::string& value) {
    return std::string(key) + "=\"" + value + "\"";
}

SourceKind kindOf(const NetworkSettings& settings) {
    if (settings.ssl != 0) return SourceKind::kTls;
    return settings.transport == SYSLOG_TRANSMISSION_UDP ? SourceKind::kUdp : SourceKind::kTcp;
}

// Empty when there is nothing wrong.
std::string whatIsWrongWithTlsPaths(const _SYSLOG_CONF_SETTINGS_tag& record) {
    for (const auto& [key, path] : {std::pair("server_ca_key", &record.server_ca_key),
                                    std::pair("server_ca_file", &record.server_ca_file)}) {
        if (!isConfigurablePath(*path)) {
            return setting(key, *path) + " must be an absolute path without control characters";
        }
    }
    return {};
}

// Likewise.
std::string whatIsWrong(const NetworkSettings& settings, const _SYSLOG_CONF_SETTINGS_tag& record) {
    if (settings.port < 1 || settings.port > 65535)
        return setting(settings.portKey, std::to_string(settings.port)) + " is no port (1 to 65535)";
    if (settings.ssl == 0) return {};
    if (settings.transport == SYSLOG_TRANSMISSION_UDP) {
        return setting(settings.sslKey, "1") + " needs " + setting(settings.transportKey, "tcp") +
               ", but it is \"udp\": there is no TLS over datagrams";
    }
    return whatIsWrongWithTlsPaths(record);
}

ReceiverConfig networkConfig(const NetworkSettings& settings, const _SYSLOG_CONF_SETTINGS_tag& record) {
    ReceiverConfig config;
    config.name = settings.name;
    Source source;
    source.kind = kindOf(settings);
    source.port = static_cast<std::uint16_t>(settings.port);
    source.counted = config.name == "ietf" && source.kind != SourceKind::kUdp;
    source.portKey = settings.portKey;
    config.sources = {source};
    if (settings.ssl != 0) {
        config.keyFile = record.server_ca_key;
        config.certificateFile = record.server_ca_file;
    }
    return config;
}

std::string cannotRead(const std::string& settingsFile) {
    return "cannot read the receiver settings in " + settingsFile + ": the file or one of its keys is missing";
}

// Fills in key and certificate; what keeps rules from using them otherwise.
std::string takeTlsFiles(const std::string& settingsFile, ReceiverConfig& config) {
    _SYSLOG_CONF_SETTINGS_tag record;
    if (SyslogServerConfGet(settingsFile, record) != 0) return cannotRead(settingsFile);
    if (std::string wrong = whatIsWrongWithTlsPaths(record); !wrong.empty())
        return wrong + " (" + settingsFile + ")";
    config.keyFile = record.server_ca_key;
    config.certificateFile = record.server_ca_file;
    return {};
}

std::optional<ReceiverConfig> rulesConfig(const SettingsPlaces& places, std::string& error) {
    std::vector<_CUSTOMIZED_RULE_tag> rules;
    if (const int code = readRules(places.rules, rules); code != 0) {
        error = "cannot read the receiving rules in " + places.rules + ": " + std::strerror(code);
        return std::nullopt;
    }
    ReceiverConfig config;
    config.name = "custrule";
    config.needsAll = false;
    config.sharesUdpPorts = false;
    const bool tls =
        std::any_of(rules.begin(), rules.end(), [](const auto& rule) { return rule.enable && rule.ssl; });
    RuleSources chosen = chooseRuleSources(rules, tls ? takeTlsFiles(places.settings, config) : std::string());
    config.sources = std::move(chosen.sources);
    config.remarks = std::move(chosen.remarks);
    return config;
}

}  // namespace

bool isReceiverName(std::string_view name) noexcept {
    return name == "bsd" || name == "ietf" || name == "local" || name == "custrule";
}

std::optional<ReceiverConfig> receiverConfig(std::string_view name, const SettingsPlaces& places,
                                             std::string& error) {
    if (name == "custrule") return rulesConfig(places, error);
    if (name == "local") {
        std::string trouble;
        ReceiverConfig config = localReceiverConfig({.journal = ::sd_booted() > 0}, trouble);
        if (!trouble.empty()) logLine("ombrel-receiver: " + trouble);
        return config;
    }
    _SYSLOG_CONF_SETTINGS_tag record;
    if (SyslogServerConfGet(places.settings, record) != 0) {
        error = cannotRead(places.settings);
        return std::nullopt;
    }
    const NetworkSettings settings = networkSettings(name, record);
    if (const std::string wrong = whatIsWrong(settings, record); !wrong.empty()) {
        error = wrong + " (" + places.settings + ")";
        return std::nullopt;
    }
    return networkConfig(settings, record);
}

ReceiverConfig localReceiverConfig(const LocalPlaces& places, std::string& trouble) {
    ReceiverConfig config;
    config.name = "local";
    if (places.journal) {
        config.sources = {{SourceKind::kJournal}};
        return config;
    }
    config.sources = {{SourceKind::kLogSocket, 0, places.logSocket}};
    if (const Fd kernel(::open(places.kernelRing.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)); kernel) {
        config.sources.push_back({SourceKind::kKernelRing, 0, places.kernelRing});
    } else {
        trouble =
            "goes without the kernel's messages: cannot open " + places.kernelRing + ": " + std::strerror(errno);
    }
    return config;
}

}  // namespace ombrel
