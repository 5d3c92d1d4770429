// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The receivers and the jobs, looked at again and again: how many messages a second come is told from two looks.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "ombrel/customizerule.h"
#include "tools/ombrel/folder_listing.h"
#include "tools/ombrel/settings_fields.h"
#include "tools/ombrel/status_counters.h"
#include "tools/ombrel/status_report.h"

namespace ombrel {

class ReceiverWatch {
public:
    /// Fills in jobs, and says in the notes whose state is not known.
    void lookAtJobs(StatusReport& report) const;
    /// Fills in receivers, whose jobs have been looked at.
    void lookAtReceivers(const SettingsRecord& settings, StatusReport& report);

private:
    /// What the process behind a receiver ("bsd", ...) counts.
    void count(const char* process, ReceiverStatus& receiver, StatusReport& report);
    void readRules(StatusReport& report);
    void addRules(StatusReport& report);

    struct Reading {
        unsigned long long received = 0;
        long long time = 0;
    };
    std::map<std::string, Reading> before_;
    std::vector<_CUSTOMIZED_RULE_tag> rules_;
    std::optional<FolderEntry> ruleFile_;  // of which `rules_` are
    long long rulesReadAt_ = 0;
};

}  // namespace ombrel
