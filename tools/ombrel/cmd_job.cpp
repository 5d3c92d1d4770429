// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel job`: switches one service job and waits until it is up or down.
#include <sysexits.h>

#include <cstdio>
#include <string_view>

#include "platform/veskserviceconf.h"
#include "tools/ombrel/commands.h"
#include "tools/visible_text.h"

namespace {

int status(const char* job) {
    const bool running = VLIBServicectlIsJobRunning(job, 0) != 0;
    (void)printf("%s: %s\n", ombrel::visibleText(job).c_str(), running ? "running" : "stopped");
    return running ? EX_OK : 1;
}

int report(int result, const char* job, const char* what) {
    if (result >= 0) return EX_OK;
    return ombrel::complain(
        1, std::string(job) + " could not be " + what + "; the job's log and the system log say why");
}

}  // namespace

int ombrel::cmdJob(std::span<char* const> words) {
    if (words.size() != 2) return complain(EX_USAGE, "usage: ombrel job start|stop|restart|reload|status NAME");
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
