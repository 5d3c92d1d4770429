// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel job`: switches one service job and waits until it is up or down.
#include <sysexits.h>

#include <cerrno>
#include <memory>

#include "linux/common/error_record.h"
#include "linux/common/text_escape.h"
#include "platform/veskserviceconf.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/error_text.h"
#include "tools/ombrel/json_writer.h"
#include "tools/ombrel/machine_files.h"
#include "tools/ombrel/waiting.h"

namespace ombrel {

namespace {

/// What the error record says of a job that did not do as it was told.
std::string reason() {
    const int code = VLIBCErrGet();
    switch (code) {
        case kErrorNotFound:
        case kErrorInvalidArgument:
            return "there is no such job";
        case kErrorTimeout:
            return "not in time; the job's log says why";
        case fromErrno(ECONNREFUSED):
        case fromErrno(ENOENT):
        case fromErrno(EHOSTUNREACH):
            return "the service manager cannot be reached; start s6-svscan on the scan folder, or D-Bus for "
                   "systemd";
        case fromErrno(ESRCH):
            return "it is not running";
        case fromErrno(EOPNOTSUPP):
            return "the job has no such action, or this machine neither systemd nor a scan folder of jobs";
        default:
            const std::string text = errorText(code);
            return text.empty() ? "the job's log and the system log say why" : text;
    }
}

constexpr const char* kScanFolder = "/var/packages/Ombrel/target/service/run";

/// Who may not look into the folder of the supervisor's jobs sees none, which is no reason to look for one.
bool isRightMissing() {
    if (isRoot()) return false;
    const int code = VLIBCErrGet();
    if (code == fromErrno(EACCES) || code == fromErrno(EPERM)) return true;
    if (code != fromErrno(EOPNOTSUPP)) return false;
    const auto folder = fileFacts(kScanFolder);
    return folder && !folder->mayRead;
}

int complainOf(const std::string& what) {
    if (!isRightMissing()) return complain(1, what + ": " + reason());
    return complain(EX_NOPERM, what + ": the right to use the service manager is missing (" + kScanFolder +
                                   "); run this as root");
}

std::string jobJson(const std::string& job, bool isRunning) {
    return JsonWriter().beginObject().member("job", job).member("running", isRunning).endObject().takeLine();
}

int status(const Context& context, const std::string& job) {
    VLIBCErrSetEx(0, "", 0);
    const bool isRunning = VLIBServicectlIsJobRunning(job.c_str(), 0) != 0;
    if (!isRunning && VLIBCErrGet() != 0) {
        return complainOf("nothing is known of " + job);
    }
    const std::string text = escapeForLine(job) + (isRunning ? ": running\n" : ": stopped\n");
    return endOfOutput(say(context.json ? jobJson(job, isRunning) : text), isRunning ? 0 : 1);
}

struct Switch {
    const char* name;
    const char* summary;
    const char* done;  ///< "could not be ..."
    int (*act)(const char* job);
    bool isRunning;  ///< when it is done
};

constexpr Switch kSwitches[] = {
    {"start", "start a job, also at every boot from now on", "started", VLIBServicectlJobStart, true},
    {"stop", "stop a job, until it is started again", "stopped", VLIBServicectlJobStop, false},
    {"restart", "stop a job and start it", "restarted",
     [](const char* job) { return VLIBServicectlRestart(job, 0); }, true},
    {"reload", "have a running job read its settings again", "reloaded", VLIBServicectlJobReload, true}};

int wait(const Context& context, const Switch& kind, const std::string& job) {
    const Waiting waiting(context.err, "waiting for " + escapeForLine(job));
    return kind.act(job.c_str());
}

int act(const Context& context, const Switch& kind, const std::string& job) {
    if (wait(context, kind, job) < 0) {
        return complainOf(job + " could not be " + kind.done);
    }
    return context.json ? endOfOutput(say(jobJson(job, kind.isRunning))) : 0;
}

}  // namespace

void addJobCommand(Command& root) {
    Command& group = root.add("job", "switch a service job and wait until it is up or down");
    for (const Switch& kind : kSwitches) {
        auto job = std::make_shared<std::string>();
        group.add(kind.name, kind.summary)
            .word("NAME", *job, "the job", WordKind::kJob)
            .example(std::string("ombrel job ") + kind.name + " pkg-Ombrel-bsd")
            .run([job, &kind](const Context& context) { return act(context, kind, *job); });
    }
    auto job = std::make_shared<std::string>();
    group.add("status", "tell whether a job runs")
        .word("NAME", *job, "the job", WordKind::kJob)
        .exitCode(0, "it runs")
        .exitCode(1, "it is stopped, or nothing is known of it")
        .example("ombrel job status pkg-Ombrel-syslog")
        .run([job](const Context& context) { return status(context, *job); });
}

}  // namespace ombrel
