// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A receiver: settings to configuration, configuration to a running syslog-ng.
#pragma once

#include <chrono>
#include <string>

#include "receiver/launcher/receiver_config.h"
#include "receiver/launcher/receiver_settings.h"

namespace ombrel {

struct LauncherPlaces {
    SettingsPlaces settings;
    std::string runFolder;  ///< token; a folder for each receiver
    std::string syslogNg = "/usr/sbin/syslog-ng";
    std::string logWriter{};  ///< started for the last lines when the log writer is away; empty: none
    int notifyFd = -1;        ///< for reportReady() when messages are taken
    // A port that is free again and a certificate that is there give no sign.
    std::chrono::milliseconds tryAgain{10'000};
    std::chrono::milliseconds reload{5'000};  ///< for an answer; one that comes later counts, too
    int (*openPorts)() = nullptr;  ///< has the firewall take up the declared ports, at each start; null: it knows
};

/// Writes the configuration, checks it and runs syslog-ng until SIGTERM or SIGINT, which hand over what it holds
/// first, or until it ends by itself. SIGHUP reads the settings again. An exit code of sysexits.h, after a line on
/// standard error when it is not 0.
int launchReceiver(const LauncherPlaces& places, ReceiverConfig config);

/// Prints the configuration without the token. Exit code.
int printReceiverConfig(ReceiverConfig config);

/// 0 when the receiver's syslog-ng answers and has bound all that it listens on, 1 otherwise.
int checkReceiver(const LauncherPlaces& places, const ReceiverConfig& config);

}  // namespace ombrel
