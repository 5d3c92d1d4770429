// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The last seconds of a receiver. Lines of streams lie in syslog-ng's memory until the log writer has stored
// them, and syslog-ng drops them when it ends; so before it may end they are handed over:
//
// 1. syslog-ng goes on until the connections have been read up to what has come, some seconds at most: what is
//    read is not only in the queue, but also in buffers that a reload would drop.
// 2. It reloads a configuration that reads from no stream. Queues outlive that.
// 3. It is waited for until the log writer has answered for each line.
//
// Datagrams are not waited for: what is left of them outlives the receiver in a file.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "receiver/launcher/child.h"
#include "receiver/launcher/receiver_config.h"
#include "receiver/launcher/receiver_files.h"

namespace ombrel {

class HandOver {
public:
    /// `logWriter` is the program that is run where nobody listens on the log writer's port.
    HandOver(const ReceiverFiles& files, const ReceiverConfig& config, Child& syslogNg, std::string logWriter);
    HandOver(const HandOver&) = delete;
    HandOver& operator=(const HandOver&) = delete;
    /// Ends the log writer it has started; so syslog-ng is to end before.
    ~HandOver();

    /// Blocks at most 6.5 s. Says how many lines are left, if any; syslog-ng may end after it in any case.
    void run();

private:
    std::optional<long long> held(Deadline deadline) const;
    bool nothingWaits() const;
    bool pause(Deadline deadline);
    bool writerListens() const;
    void standInForWriter(Deadline deadline);
    bool await(Deadline deadline, bool streamsToo);

    const ReceiverFiles& files_;
    const ReceiverConfig& config_;
    Child& syslogNg_;
    std::string logWriter_;
    std::vector<Source> heldBack_;
    long long lastHeld_ = 0;
    std::optional<Deadline> writerMissedAt_;
    bool writerTried_ = false;
    std::optional<Child> writer_;
};

}  // namespace ombrel
