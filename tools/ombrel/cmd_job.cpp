// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel job`: switches one service job and waits until it is up or down.
#include <sysexits.h>

#include <cstdio>
#include <string_view>

#include "linux/common/error_record.h"
#include "linux/common/text_escape.h"
#include "platform/veskserviceconf.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/error_text.h"

namespace {

constexpr const char* kUsage = "usage: ombrel job start|stop|restart|reload|status NAME";

/// What the error record says of a job that did not do as it was told.
std::string reason() {
    const int code = VLIBCErrGet();
    switch (code) {
        case ombrel::kErrorNotFound:
        case ombrel::kErrorInvalidArgument:
            return "there is no such job";
        case ombrel::kErrorTimeout:
            return "not in time; the job's log says why";
        case ombrel::fromErrno(ECONNREFUSED):
        case ombrel::fromErrno(ENOENT):
        case ombrel::fromErrno(EHOSTUNREACH):
            return "the service manager cannot be reached; start s6-svscan on the scan folder, or D-Bus for "
                   "systemd";
        case ombrel::fromErrno(ESRCH):
            return "it is not running";
        case ombrel::fromErrno(EOPNOTSUPP):
            return "the job has no such action, or this machine neither systemd nor a scan folder of jobs";
        default:
            const std::string text = ombrel::errorText(code);
            return text.empty() ? "the job's log and the system log say why" : text;
    }
}

int status(const char* job) {
    VLIBCErrSetEx(0, "", 0);
    const bool running = VLIBServicectlIsJobRunning(job, 0) != 0;
    if (!running && VLIBCErrGet() != 0) {
        return ombrel::complain(1, "nothing is known of " + std::string(job) + ": " + reason());
    }
    (void)printf("%s: %s\n", ombrel::escapeForLine(job).c_str(), running ? "running" : "stopped");
    return running ? EX_OK : 1;
}

int report(int result, const char* job, const char* what) {
    if (result >= 0) return EX_OK;
    return ombrel::complain(1, std::string(job) + " could not be " + what + ": " + reason());
}

}  // namespace

int ombrel::cmdJob(std::span<char* const> words) {
    if (asksForHelp(words)) return showHelp(kUsage);
    if (words.size() != 2) return complain(EX_USAGE, kUsage);
    const std::string_view action = words[0];
    const char* job = words[1];
    if (action == "start") return report(VLIBServicectlJobStart(job), job, "started");
    if (action == "stop") return report(VLIBServicectlJobStop(job), job, "stopped");
    if (action == "restart") return report(VLIBServicectlRestart(job, 0), job, "restarted");
    if (action == "reload") return report(VLIBServicectlJobReload(job), job, "reloaded");
    if (action == "status") return status(job);
    return complain(EX_USAGE,
                    "no action \"" + std::string(action) + "\"; expected start, stop, restart, reload or status");
}
