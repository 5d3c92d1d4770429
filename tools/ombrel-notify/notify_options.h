// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What the service that writes notices is told when it is started. The places are those of an installed package.
#pragma once

#include <chrono>
#include <string>

#include "linux/vesksyslog/event_log.h"

namespace ombrel {

struct NotifyOptions {
    std::string settingsFile = "/var/packages/Ombrel/target/service/conf/server.conf";
    std::string eventFile = kEventFile;
    std::string stateFolder = "/var/packages/Ombrel/target/service/run/notify";
    std::string procNetFolder = "/proc/net";
    std::chrono::seconds interval{10};    ///< between two looks at what has no event
    std::chrono::seconds quietTime{600};  ///< a cause that goes on is told at most once in it
    int notifyFd = -1;
};

}  // namespace ombrel
