// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What `ombrel status` asks of the machine itself.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "linux/common/socket_table.h"
#include "tools/ombrel/status_report.h"

namespace ombrel {

/// The right that is missing to look at a path: "PATH may not be looked at"; nothing when there is no such lack.
std::optional<std::string> missingRight(const std::string& path);

/// The folder of the jobs' run-time files, which tell most of what there is to know of them.
std::string runFolder();

/// Of the file system of a folder; nothing, with errno set, when it cannot be told.
std::optional<VolumeStatus> volumeOf(const std::string& folder);

/// The kernel's table of "udp" or "udp6" sockets; empty where there is none.
std::string socketTableText(const std::string& name);

/// What the syslog-ng of a receiver ("bsd", "ietf", "local", "custrule") counts, in its own words; nothing when it
/// does not answer within two seconds.
std::optional<std::string> receiverCounters(const std::string& receiver);

/// The sockets that the syslog-ng of a receiver has open; none that may not be looked at.
std::set<Inode> receiverSockets(const std::string& receiver);

}  // namespace ombrel
