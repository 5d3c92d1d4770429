// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Service jobs as units of systemd: the job NAME is the unit NAME.service, or NAME.timer where that service does
// something once and ends (Type=oneshot). A unit that is enabled is started at boot, so starting a job enables it
// and stopping it disables it.
#pragma once

#include <chrono>
#include <string>

#include "linux/common/child_process.h"
#include "linux/veskserviceconf/service_manager.h"

namespace ombrel {

class SystemdBus;

class SystemdManager final : public ServiceManager {
public:
    /// @param busAddress  of the bus that systemd is on; the system's own when empty
    /// @param longest     bound of each operation; one that starts and has to give up takes up to twice as long
    explicit SystemdManager(std::string busAddress = {},
                            std::chrono::milliseconds longest = std::chrono::seconds(30));

    int start(const std::string& job) override;
    int stop(const std::string& job) override;
    int restart(const std::string& job) override;
    int reload(const std::string& job) override;
    bool isRunning(const std::string& job) override;

    /// Has systemd read all unit files again, as it must after one of them was changed.
    int reloadDefinitions();

private:
    struct Unit {
        std::string name;
        std::string object;   ///< on the bus
        std::string state;    ///< "active", "reloading", "inactive", "failed", "activating", "deactivating"
        std::string service;  ///< of a timer: what it starts
    };

    // Codes of error_record.h, 0 for success.
    int find(SystemdBus& bus, const std::string& job, Unit& unit) const;
    static int lookAt(SystemdBus& bus, const std::string& name, Unit& unit);
    int bringUp(SystemdBus& bus, const char* method, const Unit& unit) const;
    int startFound(SystemdBus& bus, const Unit& unit) const;
    void giveUp(SystemdBus& bus, const Unit& unit) const;

    std::string busAddress_;
    std::chrono::milliseconds longest_;
};

}  // namespace ombrel
