// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The jobs that are wanted, and what they listen on.
#include <array>
#include <list>
#include <set>

#include "platform/veskcore.h"
#include "platform/veskserviceconf.h"
#include "src/fixed_paths.h"
#include "src/service_jobs.h"
#include "tools/ombrel/doctor_checks.h"
#include "tools/ombrel/job_names.h"
#include "tools/ombrel/machine_files.h"
#include "tools/ombrel/machine_ports.h"
#include "tools/ombrel/rule_checks.h"
#include "tools/ombrel/rule_store.h"
#include "tools/ombrel/settings_change.h"

namespace ombrel {

namespace {

using enum FindingState;

constexpr const char* kWriterPort = "5615/tcp";  // on 127.0.0.1

enum class Wish { kOn, kOff, kNotSaid };

bool isRunning(const char* job) {
    return VLIBServicectlIsJobRunning(job, 0) != 0;
}

/// What was said last when the job was switched.
Wish wishOf(const char* job) {
    std::array<char, 16> value{};
    constexpr int kMost = static_cast<int>(value.size()) - 1;
    if (VLIBCFileGetKeyValue(kEnabledJobsFile, job, value.data(), kMost, 0) <= 0) return Wish::kNotSaid;
    return std::string(value.data()) == "yes" ? Wish::kOn : Wish::kOff;
}

std::vector<RuleRecord> enabledRules() {
    std::vector<RuleRecord> rules;
    const auto names = ruleNames();
    for (const std::string& name : names.value_or(std::list<std::string>{})) {
        const auto rule = readRule(name);
        if (rule && rule->enable) rules.push_back(*rule);
    }
    return rules;
}

Finding findingOf(const char* job, Wish wish) {
    const std::string name = "job " + std::string(job);
    const std::string tool = "ombrel job ";
    if (isRunning(job)) {
        if (wish != Wish::kOff) return {kOk, name, "it runs", ""};
        return {kWarning, name, "it runs although it is switched off, and will not after the next boot",
                "switch it on by ombrel settings set, or " + tool + "stop " + job};
    }
    if (wish != Wish::kOn) return {kOk, name, "it is off", ""};
    // Most service managers do not let a plain user ask.
    if (!isRoot()) return {kUnknown, name, "whether it runs is not for this user to see", "ask as root"};
    return {
        kWrong, name, "it is wanted, but does not run",
        tool + "start " + job + "; /var/packages/Ombrel/target/service/log/" + job + "/current says why it ended"};
}

Finding socketFinding(const std::string& port, const std::string& what, const std::set<std::string>& own,
                      const char* job) {
    const std::string name = "socket " + port;
    if (own.contains(port)) return {kOk, name, what + " listens", ""};
    if (!isRoot()) return {kUnknown, name, "whose sockets these are is not for this user to see", "ask as root"};
    return {kWrong, name, what + " runs, but does not listen on " + port,
            std::string("ombrel job restart ") + job + "; its log says why"};
}

}  // namespace

Findings checkJobs() {
    Findings findings;
    const Wish bsd = wishOf(kBsdJob);
    const Wish ietf = wishOf(kIetfJob);
    const Wish local = wishOf(kLocalArchiveJob);
    const Wish rules = enabledRules().empty() ? Wish::kNotSaid : Wish::kOn;
    bool isAnyWanted = false;
    const std::pair<const char*, Wish> jobs[] = {
        {kBsdJob, bsd}, {kIetfJob, ietf}, {kLocalArchiveJob, local}, {kCustomRuleJob, rules}};
    for (const auto& [job, wish] : jobs) {
        findings.push_back(findingOf(job, wish));
        isAnyWanted = isAnyWanted || wish == Wish::kOn || isRunning(job);
    }
    // Whoever receives needs the one that writes.
    for (const char* job : {kWriterJob, kNotifyService})
        findings.push_back(findingOf(job, isAnyWanted ? Wish::kOn : Wish::kNotSaid));
    return findings;
}

Findings checkSockets(const SettingsRecord* record) {
    const auto own = ownPorts();
    if (!own) return {{kUnknown, "sockets", "the kernel's tables of sockets cannot be read", ""}};
    Findings findings;
    if (record != nullptr) {
        for (const ReceiverSettings& receiver : receiversOf(*record)) {
            if (receiver.isOn)
                findings.push_back(socketFinding(portText(receiver), receiver.job, *own, receiver.job));
        }
    }
    if (isRunning(kWriterJob)) findings.push_back(socketFinding(kWriterPort, kWriterJob, *own, kWriterJob));
    if (!isRunning(kCustomRuleJob)) return findings;
    for (const RuleRecord& rule : enabledRules())
        findings.push_back(socketFinding(portText(rule), "the rule \"" + rule.name + "\"", *own, kCustomRuleJob));
    return findings;
}

}  // namespace ombrel
