// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Real jobs for tests: small ones of every behaviour, under a supervisor over a scan folder, or under systemd
// where it has booted the machine. What cannot be had throws std::runtime_error with the reason.
#pragma once

#include <sys/types.h>

#include <string>

#include "linux/veskserviceconf/job_definition.h"
#include "tests/contract/contract_world.h"

namespace ombrel::test {

/// An s6-svscan over a folder, which it makes; it ends with its jobs at the end of the object, or with the test.
class Supervisor {
public:
    explicit Supervisor(std::string scanFolder);
    ~Supervisor();
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    [[nodiscard]] const std::string& scanFolder() const { return scanFolder_; }

private:
    std::string scanFolder_;
    pid_t pid_ = -1;
};

/// The start of such a script: the function `ready` reports to either manager.
extern const char* const kScriptHead;

/// The definition of a job whose program is a script written into `folder`. It writes a line into the fifo
/// folder/events, when that exists, whenever it has been told to reload.
JobDefinition scriptedJob(const std::string& name, contract::JobKind kind, const std::string& folder);

/// Makes or renews a service folder as the product does: by ombrel-jobs, from a definition.
void makeServiceFolder(const JobDefinition& job, const std::string& scanFolder, const std::string& logFolder);

/// Makes or renews a unit as the product does, in the folder that systemd reads.
void makeUnit(const JobDefinition& job);

/// Makes the service folder of a stopped job and waits until its supervisor, which must run, has taken it.
void addJob(const JobDefinition& job, const std::string& scanFolder, const std::string& logFolder);

}  // namespace ombrel::test
