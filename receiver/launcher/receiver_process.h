// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// A receiver at work: the parent of its syslog-ng, and the one that gets the signals.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "linux/common/fd.h"
#include "receiver/launcher/child.h"
#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/readiness_watch.h"
#include "receiver/launcher/receiver_config.h"
#include "receiver/launcher/receiver_files.h"
#include "receiver/launcher/receiver_launcher.h"
#include "receiver/settings_watch.h"
#include "receiver/visible_log.h"

namespace ombrel {

/// What this machine allows: addresses, and the size of a receive buffer.
void fitToMachine(ReceiverConfig& config);

class ReceiverProcess {
public:
    ReceiverProcess(const LauncherPlaces& places, const ReceiverFiles& files, ReceiverConfig config);

    /// Takes SIGTERM, SIGINT and SIGHUP from here on. Exit code.
    int run();

private:
    int takeSignals();
    int start();
    int serve();
    int readSignal() const;
    void stop();
    void removeLogSockets() const;
    void watchSettings();
    int followSettings();
    int followCertificate();
    int settle(ReceiverConfig& next, const ReceiverConfig* running);
    int timeout() const;
    void tryAgain();
    std::string useInPlace(const ReceiverConfig& next);
    std::optional<ControlQuestion> askToReload(Deadline deadline);
    void seeReloadThrough();
    void tell(const std::vector<std::string>& remarks);
    void openPorts() const;

    const LauncherPlaces& places_;
    const ReceiverFiles& files_;
    ReceiverConfig wanted_;
    ReceiverConfig config_;  // what of it can be had
    std::optional<Deadline> tryAgainAt_;
    std::optional<ControlQuestion> reload_;  // not answered yet
    ReceiverConfig previous_;                // what is in use when it is refused
    std::set<std::string> told_;
    LogThrottle notUsed_;
    SettingsWatch settings_;
    Fd signals_;
    ReadinessWatch readiness_;
    std::optional<Child> syslogNg_;
};

}  // namespace ombrel
