// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/settings_plan.h"

#include <algorithm>
#include <array>
#include <map>

#include "linux/common/text_escape.h"
#include "ombrel/logarchiver.h"
#include "platform/veskcore.h"
#include "platform/veskserviceconf.h"
#include "src/fixed_paths.h"
#include "src/service_jobs.h"
#include "tools/ombrel/job_names.h"

namespace ombrel {

namespace {

using enum SettingsPart;

constexpr const char* kBsdSection = "syslog_server";
constexpr const char* kIetfSection = "syslog_server_ietf";

using Ports = std::map<std::string, std::string>;  // section -> "514/udp"

/// One key of a declaration; empty when it is not there.
std::string declaredValue(const char* section, const char* key) {
    std::array<char, 64> value{};
    const int code =
        VLIBCFileGetSectionValue(kPortFile, section, key, value.data(), static_cast<int>(value.size()));
    return code == 0 ? value.data() : "";
}

Ports declaredPorts() {
    Ports ports;
    if (VLIBCFileExist(kPortFile) == 0) return ports;
    for (const char* section : {kBsdSection, kIetfSection}) {
        const std::string port = declaredValue(section, "port");
        if (!port.empty()) ports[section] = port + "/" + declaredValue(section, "protocol");
    }
    return ports;
}

/// A port that both receivers share is declared once.
Ports wantedPorts(const SettingsRecord& wanted) {
    const auto [bsd, ietf] = receiversOf(wanted);
    Ports ports = {{kBsdSection, portText(bsd)}};
    if (portText(bsd) != portText(ietf)) ports[kIetfSection] = portText(ietf);
    return ports;
}

std::vector<std::string> missingIn(const Ports& ports, const Ports& others) {
    std::vector<std::string> missing;
    for (const auto& [section, port] : ports) {
        const bool isThere = std::any_of(others.begin(), others.end(),
                                         [&port = port](const auto& other) { return other.second == port; });
        if (!isThere) missing.push_back(port);
    }
    return missing;
}

void planReceivers(SettingsPlan& plan, const SettingsRecord& wanted) {
    const Ports before = declaredPorts();
    const Ports after = wantedPorts(wanted);
    plan.closed = missingIn(before, after);
    plan.opened = missingIn(after, before);
    auto& steps = plan.steps;
    steps.push_back({"stop", kNotifyService});
    steps.push_back({"stop", kBsdJob});
    steps.push_back({"stop", kIetfJob});
    for (const auto& [section, port] : before)
        steps.push_back({"withdraw", section});
    for (const auto& [section, port] : after)
        steps.push_back({"declare", section});
    steps.push_back({"reload", "firewall"});
    steps.push_back({"write", kSettingsFile});
    if (wanted.bsd_enable != 0) steps.push_back({"start", kBsdJob});
    if (wanted.ietf_enable != 0) steps.push_back({"start", kIetfJob});
}

void planArchives(SettingsPlan& plan) {
    LogArchiver archiver;  // by the settings as they stand
    for (const auto& database : archiver.CurrentWorkingDBGet()) {
        const long long rows = archiver.DBCountGet(database.strDBPath);
        if (rows <= 0) continue;
        plan.archives.push_back({database.strDBPath, rows});
        plan.steps.push_back({"archive", database.strDBPath});
        plan.steps.push_back({"restart", kWriterJob});
    }
}

void planStorage(SettingsPlan& plan, const SettingsRecord& current, const SettingsRecord& wanted) {
    plan.steps.push_back({"stop", kLocalArchiveJob});
    if (!current.arch_dest.empty()) planArchives(plan);
    plan.steps.push_back({"write", kSettingsFile});
    if (wanted.bsd_enable != 0) plan.steps.push_back({"restart", kBsdJob});
    if (wanted.ietf_enable != 0) plan.steps.push_back({"restart", kIetfJob});
    if (VLIBServicectlIsJobRunning(kCustomRuleJob, 0) != 0) plan.steps.push_back({"restart", kCustomRuleJob});
    if (wanted.localarchive_enable != 0) plan.steps.push_back({"start", kLocalArchiveJob});
}

void writeTexts(JsonWriter& json, const char* name, const std::vector<std::string>& texts) {
    json.key(name).beginArray();
    for (const std::string& text : texts)
        json.text(text);
    json.endArray();
}

}  // namespace

SettingsPlan planOf(const SettingsRecord& current, const SettingsRecord& wanted) {
    SettingsPlan plan;
    plan.changes = changesOf(current, wanted);
    if (differ(kReceivers, current, wanted)) planReceivers(plan, wanted);
    plan.steps.push_back({"start", kNotifyService});  // however the settings are
    if (differ(kStorage, current, wanted)) planStorage(plan, current, wanted);
    return plan;
}

std::string planText(const SettingsPlan& plan) {
    std::string text = changesText(plan.changes);
    for (const PlannedStep& step : plan.steps) {
        const auto archive = std::find_if(plan.archives.begin(), plan.archives.end(),
                                          [&](const PlannedArchive& each) { return each.path == step.name; });
        text += "would " + step.action + " " + escapeForLine(step.name);
        if (archive != plan.archives.end()) text += " (" + std::to_string(archive->rows) + " rows)";
        text += '\n';
    }
    for (const std::string& port : plan.closed)
        text += "would close port " + port + '\n';
    for (const std::string& port : plan.opened)
        text += "would open port " + port + '\n';
    return text;
}

void writePlan(JsonWriter& json, const SettingsPlan& plan) {
    writeChanges(json, plan.changes);
    json.key("steps").beginArray();
    for (const PlannedStep& step : plan.steps)
        json.beginObject().member("action", step.action).member("name", step.name).endObject();
    json.endArray().key("archives").beginArray();
    for (const PlannedArchive& archive : plan.archives)
        json.beginObject().member("path", archive.path).member("rows", archive.rows).endObject();
    json.endArray();
    writeTexts(json, "ports_closed", plan.closed);
    writeTexts(json, "ports_opened", plan.opened);
}

}  // namespace ombrel
