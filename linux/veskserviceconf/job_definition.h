// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The definition of a service job, from which each service manager's own files are made: a file NAME.job of
// key="value" lines.
//
//   description          one line for people
//   command              absolute path and arguments, set apart by blanks; no quoting
//   user                 who runs it; root without it
//   ready_fd             it writes a line break to this descriptor (3..9) when it is ready, or READY=1 to the
//   socket
//                        of NOTIFY_SOCKET where that is set (sd_notify(3)); it must be there
//   reload_signal        HUP, USR1 or USR2; without it the job cannot be told to reload
//   stop_signal          the signal that ends it; TERM without it
//   stop_timeout_seconds 1..25, until it is killed; 10 without it
//   after                a job that is started earlier
//   every_seconds        1..604800: the command does something once and ends, and is to be run so often. systemd
//   has a
//                        timer for that; elsewhere it is told --every=N and --notify-fd=N, does it by itself and
//                        is ready in between
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ombrel {

struct JobDefinition {
    std::string name;
    std::string description;
    std::vector<std::string> command;
    std::string user = "root";
    int readyFd = 3;
    std::string reloadSignal;
    std::string stopSignal = "TERM";
    int stopTimeoutSeconds = 10;
    std::string after;
    int everySeconds = 0;  ///< 0: it runs all the time
};

/// Reads a definition.
/// @return empty, or what is wrong with it, with the line number where one line is to blame
std::string parseJobDefinition(std::string_view text, JobDefinition& job);

/// Brings the jobs into an order in which each comes behind the one that it names in `after`; by name
/// otherwise. False when one names itself, in a circle, or no job of these.
bool orderJobs(std::vector<JobDefinition>& jobs);

}  // namespace ombrel
