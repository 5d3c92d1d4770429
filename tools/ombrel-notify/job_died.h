// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel-notify died`: run by the service managers when a job has ended by itself.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "linux/vesksyslog/event_log.h"

namespace ombrel {

struct JobDeath {
    std::string job;
    int exitCode = -1;   ///< 0..255; -1 when a signal ended it
    std::string signal;  ///< "KILL"; empty when none did
};

/// The three words NAME EXITCODE SIGNAL. Nothing when they make no sense.
std::optional<JobDeath> readJobDeath(std::span<char* const> words);

struct JobDeathPlaces {
    std::string eventFile = kEventFile;
    std::string journalSocket = kJournalSocket;
    std::string stampFolder = "/var/packages/Ombrel/target/service/run/notify";  ///< made, but not those above it
};

/// Enters the event, at most once a minute for a job. Waits 2 s at most.
/// @return exit code of sysexits.h; a line on standard error goes with a failure
int enterJobDeath(const JobDeath& death, const JobDeathPlaces& places);

}  // namespace ombrel
