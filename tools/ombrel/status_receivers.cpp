// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/status_receivers.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "linux/common/error_record.h"
#include "platform/veskcore.h"
#include "platform/veskserviceconf.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/job_names.h"
#include "tools/ombrel/status_machine.h"

namespace ombrel {

namespace {

struct NamedReceiver {
    ReceiverStatus::Kind kind;
    const char* process;
    const char* job;
};
constexpr std::array<NamedReceiver, 4> kReceivers = {{{ReceiverStatus::Kind::kRfc3164, "bsd", kBsdJob},
                                                      {ReceiverStatus::Kind::kRfc5424, "ietf", kIetfJob},
                                                      {ReceiverStatus::Kind::kLocal, "local", kLocalArchiveJob},
                                                      {ReceiverStatus::Kind::kRules, "custrule", kCustomRuleJob}}};

/// What was last asked for, of a job that the settings switch.
bool wasSwitchedOn(const char* job) {
    std::array<char, 16> value{};
    const int found =
        VLIBCFileGetKeyValue(kEnabledJobsFile, job, value.data(), static_cast<int>(value.size()) - 1, 0);
    return found > 0 && std::string_view(value.data()) == "yes";
}

/// With the reason, in the error record, when it is not known.
std::optional<bool> isRunning(const char* job) {
    VLIBCErrSetEx(0, "", 0);
    if (VLIBServicectlIsJobRunning(job, 0) != 0) return true;
    return VLIBCErrGet() == 0 ? std::optional(false) : std::nullopt;
}

const JobStatus& jobOf(const StatusReport& report, std::string_view name) {
    return *std::find_if(report.jobs.begin(), report.jobs.end(),
                         [&](const auto& job) { return job.name == name; });
}

/// The sockets that take what anybody sends to a port; nothing when the kernel does not say.
std::optional<std::vector<SocketRow>> openSockets(Transport transport) {
    std::vector<SocketRow> open;
    bool isKnown = false;
    const std::string name = transport == Transport::kUdp ? "udp" : "tcp";
    for (const std::string& table : {name, name + "6"}) {
        const std::string text = socketTableText(table);
        const auto rows = readSocketTable(text, transport);
        if (text.empty() || !rows) continue;
        isKnown = true;
        std::copy_if(rows->begin(), rows->end(), std::back_inserter(open),
                     [transport](const SocketRow& row) { return takesFromAnybody(row, transport); });
    }
    return isKnown ? std::optional(std::move(open)) : std::nullopt;
}

bool isOpen(int port, const std::vector<SocketRow>& open) {
    return std::any_of(open.begin(), open.end(), [port](const SocketRow& row) { return row.localPort == port; });
}

/// Two receivers may share a port, each with a socket of its own; who has which must then be known.
std::optional<unsigned long long> lostAt(int port, const std::vector<SocketRow>& open,
                                         const std::set<Inode>& own) {
    unsigned long long lost = 0;
    unsigned long long sockets = 0;
    unsigned long long ownSockets = 0;
    unsigned long long ownLost = 0;
    for (const SocketRow& row : open) {
        if (row.localPort != port) continue;
        ++sockets;
        lost += row.drops;
        if (!own.contains(row.inode)) continue;
        ++ownSockets;
        ownLost += row.drops;
    }
    if (ownSockets > 0) return ownLost;
    return sockets == 1 ? std::optional(lost) : std::nullopt;
}

/// Whether rules are served, since one that cannot be is left out, and what the kernel has lost for each.
void lookAtSockets(std::map<ReceiverStatus::Kind, std::set<Inode>>& own, StatusReport& report) {
    const auto udp = openSockets(Transport::kUdp);
    const auto tcp = openSockets(Transport::kTcp);
    for (ReceiverStatus& receiver : report.receivers) {
        if (!receiver.port || !receiver.running.value_or(receiver.isWanted)) continue;
        const bool isRule = receiver.kind == ReceiverStatus::Kind::kRule;
        const auto& open = receiver.transport == "udp" ? udp : tcp;
        if (isRule && receiver.running && open) receiver.running = isOpen(*receiver.port, *open);
        if (receiver.transport == "udp" && udp)
            receiver.lostDatagrams =
                lostAt(*receiver.port, *udp, own[isRule ? ReceiverStatus::Kind::kRules : receiver.kind]);
    }
}

void setPort(ReceiverStatus& receiver, int port, bool isUdp, bool hasTls) {
    receiver.port = port;
    receiver.transport = isUdp ? "udp" : "tcp";
    receiver.tls = hasTls;
}

}  // namespace

void ReceiverWatch::lookAtJobs(StatusReport& report) const {
    int code = 0;
    for (const char* const name : kJobNames) {
        JobStatus job;
        job.name = name;
        job.running = isRunning(name);
        if (!job.running) code = VLIBCErrGet();
        job.isWanted = wasSwitchedOn(name);
        report.jobs.push_back(std::move(job));
    }
    if (code == 0) return;
    if (const auto right = missingRight(runFolder())) {
        report.notes.push_back(*right + ", so the jobs and what they count are not known; root can read it");
    } else {
        const std::string why = errorText(code);
        report.notes.push_back("not all jobs are known to the service manager" +
                               (why.empty() ? "" : " (" + why + ")"));
    }
}

void ReceiverWatch::count(const char* process, ReceiverStatus& receiver, StatusReport& report) {
    if (!receiver.running.value_or(false)) {
        before_.erase(process);
        return;
    }
    const auto answer = receiverCounters(process);
    const auto counters = answer ? readCounters(*answer) : std::nullopt;
    if (!counters) {
        before_.erase(process);
        if (!missingRight(runFolder()))
            report.notes.push_back("receiver " + receiverName(receiver) + " does not say what it has counted");
        return;
    }
    receiver.messages = counters->received;
    receiver.lostMessages = counters->dropped;
    const auto before = before_.find(process);
    if (before != before_.end() && before->second.time < report.time &&
        before->second.received <= counters->received) {
        const auto seconds = static_cast<unsigned long long>(report.time - before->second.time);
        receiver.perSecond = (counters->received - before->second.received + seconds / 2) / seconds;
    }
    before_[process] = {counters->received, report.time};
}

/// Each rule is read from the file anew, so a file that has not changed is left alone.
void ReceiverWatch::readRules(StatusReport& report) {
    const auto file = fileEntry(kRuleFile);
    const bool isUnchanged = file && ruleFile_ && file->bytes == ruleFile_->bytes &&
                             file->changed == ruleFile_->changed && file->changed + 1 < rulesReadAt_;
    if (isUnchanged) return;
    rules_.clear();
    ruleFile_.reset();
    std::list<std::string> names;
    VLIBCErrSetEx(0, "", 0);
    if (VESKCustomizedRuleEnum(names) < 0) {
        const std::string why = errorText(VLIBCErrGet());
        report.notes.push_back(std::string(kRuleFile) + " cannot be read" + (why.empty() ? "" : " (" + why + ")"));
        return;
    }
    for (const std::string& name : names) {
        _CUSTOMIZED_RULE_tag rule;
        if (VESKCustomizedRuleGet(name, rule) >= 0) rules_.push_back(std::move(rule));
    }
    ruleFile_ = file;
    rulesReadAt_ = report.time;
}

void ReceiverWatch::addRules(StatusReport& report) {
    readRules(report);
    const ReceiverStatus all = report.receivers.back();
    const auto on = std::count_if(rules_.begin(), rules_.end(), [](const auto& rule) { return rule.enable; });
    report.receivers.back().isWanted = on > 0;
    for (const auto& rule : rules_) {
        ReceiverStatus receiver;
        receiver.kind = ReceiverStatus::Kind::kRule;
        receiver.name = rule.name;
        receiver.isWanted = rule.enable;
        receiver.running = rule.enable ? all.running : false;
        receiver.format = rule.format;
        setPort(receiver, rule.port, rule.protocol == "udp", rule.ssl);
        if (rule.enable && on == 1) {  // what all have counted is then its own
            receiver.messages = all.messages;
            receiver.perSecond = all.perSecond;
            receiver.lostMessages = all.lostMessages;
        }
        report.receivers.push_back(std::move(receiver));
    }
}

void ReceiverWatch::lookAtReceivers(const SettingsRecord& settings, StatusReport& report) {
    std::map<ReceiverStatus::Kind, std::set<Inode>> own;
    for (const NamedReceiver& named : kReceivers) {
        const JobStatus& job = jobOf(report, named.job);
        ReceiverStatus receiver;
        receiver.kind = named.kind;
        receiver.running = job.running;
        receiver.isWanted = job.isWanted;
        if (named.kind == ReceiverStatus::Kind::kRfc3164)
            setPort(receiver, settings.server_port, settings.server_trans == SYSLOG_TRANSMISSION_UDP,
                    settings.server_ssl != 0);
        if (named.kind == ReceiverStatus::Kind::kRfc5424)
            setPort(receiver, settings.server_ietf_port, settings.server_ietf_trans == SYSLOG_TRANSMISSION_UDP,
                    settings.server_ietf_ssl != 0);
        count(named.process, receiver, report);
        if (receiver.running.value_or(false)) own[named.kind] = receiverSockets(named.process);
        report.receivers.push_back(std::move(receiver));
    }
    addRules(report);
    lookAtSockets(own, report);
}

}  // namespace ombrel
