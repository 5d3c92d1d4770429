// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel doctor`: everything that can be told about the health of this machine's log receiving.
#include "ombrel/utils.h"
#include "platform/veskcore.h"
#include "src/fixed_paths.h"
#include "tools/ombrel/answer.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/doctor_checks.h"
#include "tools/ombrel/rule_store.h"
#include "tools/ombrel/settings_check.h"

namespace ombrel {

namespace {

void append(Findings& all, const Findings& more) {
    all.insert(all.end(), more.begin(), more.end());
}

/// Settings that cannot be read are one finding among others.
int examine(const Context& context) {
    Findings findings;
    SettingsRecord record;
    VLIBCErrSetEx(0, "", 0);
    const bool isRead = SyslogConfGet(kSettingsFile, record) == 0;
    if (isRead) {
        append(findings, checkSettings(record));
    } else {
        findings.push_back(
            {FindingState::kWrong, "settings",
             std::string(kSettingsFile) + " cannot be read or lacks a required key" + reasonOf(VLIBCErrGet()),
             "ask as root; otherwise mend the file"});
    }
    append(findings, checkJobs());
    append(findings, checkSockets(isRead ? &record : nullptr));
    append(findings, checkFirewall());
    append(findings, checkPermissions(isRead ? &record : nullptr));
    append(findings, checkClock());
    append(findings, checkNewestDatabases(context));
    const bool written = say(context.json ? findingsJson(findings) : findingsText(findings, context.out));
    return endOfOutput(written, isGood(findings) ? 0 : 1);
}

}  // namespace

void addDoctorCommand(Command& root) {
    root.add("doctor", "look for whatever is wrong with this machine's log receiving, and say what to do")
        .describe(
            "Looked at are the settings as ombrel settings check does, the jobs, their sockets, the firewall, "
            "permissions, the clock, and whether the newest databases are whole, which reads all of them.")
        .example("ombrel doctor")
        .exitCode(0, "nothing is wrong; what cannot be told is said")
        .exitCode(1, "something is wrong")
        .run(examine);
}

}  // namespace ombrel
