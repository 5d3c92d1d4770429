// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/settings_check.h"

#include <cerrno>
#include <cstring>
#include <list>

#include "linux/common/tls_files.h"
#include "platform/veskcore.h"
#include "tools/ombrel/machine_files.h"
#include "tools/ombrel/machine_ports.h"
#include "tools/ombrel/rule_store.h"

namespace ombrel {

namespace {

using enum FindingState;

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "" : ", ") + text;
    return all;
}

/// Neither receiver's own declaration stands in the way of the other: both are made anew.
std::optional<PortFault> whyNoReceiverPort(const ReceiverSettings& receiver) {
    const std::string protocol = receiver.isUdp ? "udp" : "tcp";
    auto fault = whyNoPort(receiver.section, receiver.port, protocol);
    if (!fault || !fault->isTaken) return fault;
    const bool isBsd = std::string_view(receiver.section) == "syslog_server";
    return whyNoPort(isBsd ? "syslog_server_ietf" : "syslog_server", receiver.port, protocol);
}

/// A plain user cannot look at the receivers' own processes.
Finding hiddenHolder(const ReceiverSettings& receiver) {
    return {kUnknown, receiver.portKey,
            "port " + portText(receiver) + " is held by a program that this user cannot look at", "ask as root"};
}

Finding takenPort(const ReceiverSettings& receiver, const std::string& quoted, const std::string& what) {
    std::string who = what;
    if (const auto users = portUsers(receiver.port, receiver.isUdp)) {
        if (users->declarers.empty() && !users->holders.empty() && !isRoot()) return hiddenHolder(receiver);
        std::vector<std::string> all = users->declarers;
        all.insert(all.end(), users->holders.begin(), users->holders.end());
        if (!all.empty()) who = "port " + portText(receiver) + " is " + joined(all);
    }
    return {receiver.isOn ? kWrong : kWarning, receiver.portKey, quoted + who,
            "expected a port that nobody else has declared or holds"};
}

/// Of a port that nobody of ours has.
Finding freePort(const ReceiverSettings& receiver, const std::string& quoted) {
    const std::string port = "port " + portText(receiver);
    switch (const int code = bindPort(receiver.port, receiver.isUdp)) {
        case 0:
            return {kOk, receiver.portKey, port + " is free", ""};
        case EACCES:
        case EPERM:
            return {kWarning, receiver.portKey, port + " could not be tried: only root may take it", ""};
        case EADDRINUSE:
            if (!isRoot()) return hiddenHolder(receiver);
            return {receiver.isOn ? kWrong : kWarning, receiver.portKey,
                    quoted + port + " is held by a program that cannot be looked at",
                    "expected a port that nobody else holds"};
        default:
            return {kUnknown, receiver.portKey, port + " could not be tried: " + std::strerror(code), ""};
    }
}

bool usesTls(const SettingsRecord& record) {
    for (const ReceiverSettings& receiver : receiversOf(record)) {
        if (receiver.isOn && receiver.isTls && !receiver.isUdp) return true;
    }
    const auto names = ruleNames();
    for (const std::string& name : names.value_or(std::list<std::string>{})) {
        const auto rule = readRule(name);
        if (rule && rule->enable && rule->ssl) return true;
    }
    return false;
}

void addFaultsOfValues(Findings& findings, const SettingsRecord& record) {
    SettingsRecord scratch;
    for (const SettingsField& field : settingsFields()) {
        const std::string value = field.print(record);
        if (!field.parse(value, scratch))
            findings.push_back({kWrong, field.name, std::string(field.name) + "=\"" + value + "\"",
                                std::string("expected ") + field.allowed});
    }
    for (const SettingsFaultWords& fault : receiverFaults(record))
        findings.push_back({kWrong, fault.key, fault.what, ""});
}

bool mayRead(const std::string& path) {
    const auto facts = fileFacts(path);
    return facts && facts->mayRead;
}

bool tlsChanges(const SettingsRecord& current, const SettingsRecord& wanted) {
    // A receiver that is restarted reads the files again.
    return differ(SettingsPart::kReceivers, current, wanted) || differ(SettingsPart::kStorage, current, wanted);
}

}  // namespace

Finding checkPort(const ReceiverSettings& receiver) {
    const std::string quoted = std::string(receiver.portKey) + "=\"" + std::to_string(receiver.port) + "\": ";
    if (receiver.port < 1 || receiver.port > 65535)
        return {kWrong, receiver.portKey, quoted + "it is no port", "expected a port from 1 to 65535"};
    if (const auto fault = whyNoReceiverPort(receiver)) {
        if (fault->isTaken) return takenPort(receiver, quoted, fault->what);
        return {kUnknown, receiver.portKey, quoted + fault->what, ""};
    }
    const auto users = portUsers(receiver.port, receiver.isUdp);
    if (users && users->isOurs)
        return {kOk, receiver.portKey, "port " + portText(receiver) + " is held by this package", ""};
    return freePort(receiver, quoted);
}

Finding checkTls(const SettingsRecord& record) {
    const char* const name = "server_ca_file";
    const bool isNeeded = usesTls(record);
    if (record.server_ca_key.empty() && record.server_ca_file.empty()) {
        if (!isNeeded) return {kOk, name, "no certificate, and nobody needs one", ""};
        return {kWrong, name, "server_ca_key and server_ca_file are empty, and a receiver or rule has TLS",
                "expected the paths of a key and its certificate"};
    }
    const std::string wrong = whatIsWrongWithTlsFiles(record.server_ca_key, record.server_ca_file);
    if (wrong.empty())
        return {kOk, name, "key and certificate are readable, belong together and are valid now", ""};
    if (!isRoot() && !mayRead(record.server_ca_key)) return {kUnknown, name, wrong, "ask as root"};
    return {isNeeded ? kWrong : kWarning, name, wrong,
            "expected a readable key without password and its certificate, valid now"};
}

Findings checkSettings(const SettingsRecord& record) {
    Findings findings;
    addFaultsOfValues(findings, record);
    for (const ReceiverSettings& receiver : receiversOf(record)) {
        if (receiver.port >= 1 && receiver.port <= 65535) findings.push_back(checkPort(receiver));
    }
    findings.push_back(checkTls(record));
    findings.push_back(checkArchiveFolder(record.arch_dest));
    findings.push_back(checkShare(record.server_db_loc));
    return findings;
}

Findings checkChange(const SettingsRecord& current, const SettingsRecord& wanted) {
    Findings findings;
    const auto before = receiversOf(current);
    const auto after = receiversOf(wanted);
    for (std::size_t i = 0; i < after.size(); ++i) {
        const bool isNew = portText(before[i]) != portText(after[i]) || (after[i].isOn && !before[i].isOn);
        if (isNew) findings.push_back(checkPort(after[i]));
    }
    if (tlsChanges(current, wanted)) {
        const Finding tls = checkTls(wanted);
        if (tls.state != kOk) findings.push_back(tls);
    }
    if (current.arch_dest != wanted.arch_dest) findings.push_back(checkArchiveFolder(wanted.arch_dest));
    if (current.server_db_loc != wanted.server_db_loc) findings.push_back(checkShare(wanted.server_db_loc));
    return findings;
}

}  // namespace ombrel
