// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Service jobs supervised by s6: one service folder for each job in a scan folder that s6-svscan(1) watches.
// A file `down` in it keeps a job stopped when its supervisor starts.
#pragma once

#include <chrono>
#include <string>

#include "linux/common/child_process.h"
#include "linux/veskserviceconf/service_manager.h"

namespace ombrel {

class S6Manager final : public ServiceManager {
public:
    /// @param longest  bound of each operation; one that starts and has to give up takes up to twice as long
    explicit S6Manager(std::string scanFolder, std::chrono::milliseconds longest = std::chrono::seconds(30));

    int start(const std::string& job) override;
    int stop(const std::string& job) override;
    int restart(const std::string& job) override;
    int reload(const std::string& job) override;
    bool isRunning(const std::string& job) override;

private:
    struct State {
        bool supervised = false;
        bool up = false;
        bool ready = false;
        bool wanted = false;  ///< up, and started again when it has ended
        std::string pid;
    };

    [[nodiscard]] std::string folderOf(const std::string& job) const { return scanFolder_ + "/" + job; }
    [[nodiscard]] bool knows(const std::string& job) const;
    // Codes of error_record.h, 0 for success.
    int query(const std::string& folder, State& state) const;
    static int bringUp(const std::string& folder, Deadline deadline);
    static int awaitEndOfLastRun(const std::string& folder, Deadline deadline);
    static int takeDown(const std::string& folder, Deadline deadline);
    int endForRestart(const std::string& folder, const State& before, Deadline deadline) const;

    std::string scanFolder_;
    std::chrono::milliseconds longest_;
};

}  // namespace ombrel
