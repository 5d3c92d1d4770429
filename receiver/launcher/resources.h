// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a receiver needs, looked at before its syslog-ng gets it: that would only say that it could not start.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "receiver/launcher/receiver_config.h"
#include "receiver/launcher/reserved_ports.h"

namespace ombrel {

/// The number in a pid file; -1 when there is none.
pid_t readPid(const std::string& path);

/// 0, or the exit code after a line that names what cannot be used and the setting. `running` is what the receiver
/// has already and is not looked at again; null at its start. `runFolder` is where the receivers have their
/// folders.
int checkResources(const ReceiverConfig& next, const ReceiverConfig* running, const std::string& runFolder);

/// For a receiver that goes without what it cannot have, and without the reserved ports: takes those sources out
/// of `next` and enters a line for each. True when there were any.
bool leaveOutUnusable(ReceiverConfig& next, const ReceiverConfig* running, const std::string& runFolder,
                      const std::vector<ReservedPort>& reserved);

}  // namespace ombrel
