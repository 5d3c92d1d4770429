// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The folder of one receiver's syslog-ng, and the configuration in it.
#pragma once

#include <string>
#include <vector>

namespace ombrel {

struct ReceiverFiles {
    ReceiverFiles(const std::string& runFolder, const std::string& name);

    std::string folder;
    std::string configuration;
    std::string control;
    std::string persist;
    std::string pid;
};

/// Raises what this process may have open, and with it the programs that it runs, as far as it may: a settings
/// change can bring thousands of listeners, each with its connections.
/// @return how many
std::size_t allowDescriptors() noexcept;

std::vector<std::string> syslogNgCommand(const std::string& program, const ReceiverFiles& files,
                                         const std::string& configuration, std::size_t descriptors);

/// Whether a queue file holds lines that an earlier syslog-ng has not handed over. Not while one runs.
bool hasLinesLeft(const ReceiverFiles& files);

/// Replaces the configuration in one step, with errno on failure. Readable by its owner alone: it holds the token.
bool writeConfiguration(const ReceiverFiles& files, const std::string& text);

/// Likewise, once syslog-ng has found no error in it: 20 s at most, and not looked for again in what is there
/// already. Otherwise the old one stays, and a line says why. Exit code.
int writeCheckedConfiguration(const std::string& syslogNg, const ReceiverFiles& files, const std::string& text);

}  // namespace ombrel
