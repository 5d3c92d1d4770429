// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What `ombrel status` and `ombrel events` ask of the machine itself, as a test wants it. Files are those of the
// recording platform.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "linux/common/socket_table.h"
#include "tools/ombrel/context.h"
#include "tools/ombrel/status_report.h"

namespace ombrel::test {

struct FakeStatusMachine {
    std::set<std::string> hidden;                     ///< paths that may not be read
    std::optional<VolumeStatus> volume;               ///< nothing: EIO
    std::map<std::string, std::string> socketTables;  ///< by "udp", "tcp", "udp6", "tcp6"
    std::map<std::string, std::string> counters;      ///< by receiver
    std::map<std::string, std::set<Inode>> sockets;   ///< by receiver
    std::vector<std::string> followed;                ///< lines that come while the event file is followed
    int followError = 0;
    int looks = 1;                       ///< how often a view that goes on is shown
    std::function<void()> betweenLooks;  ///< what happens in between
    std::vector<std::string> drawn;      ///< on the whole terminal
    int waitError = 0;
};

FakeStatusMachine& fakeStatusMachine();

/// Runs a command without words as on a terminal; what it printed, and its exit code.
struct OnTerminal {
    int exitCode = 0;
    std::string out;
    std::string err;
};
OnTerminal runOnTerminal(const std::string& command, int columns, int lines, bool hasColours = false);

}  // namespace ombrel::test
