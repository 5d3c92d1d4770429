// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The last seconds of a receiver. Lines of streams lie in syslog-ng's memory until the log writer has stored
// them, and syslog-ng drops them when it ends; so before it may end they are handed over:
//
// 1. Senders are told to end their connections. syslog-ng goes on until the connections have been read up to what
// has
//    come, some seconds at most: what is read is not only in the queue, but also in buffers that a reload would
//    drop.
// 2. It reloads a configuration that reads from no stream. Queues outlive that. From here on senders find nobody,
//    so the log writer is asked to commit at once what it has.
// 3. It is waited for until the log writer has answered for each line.
// 4. syslog-ng is ended: killed, where it holds nothing any more, since it takes a tenth of a second otherwise.
//
// Datagrams are not waited for: what is left of them outlives the receiver in a file, once syslog-ng ends by
// itself.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "receiver/launcher/child.h"
#include "receiver/launcher/receiver_config.h"
#include "receiver/launcher/receiver_files.h"
#include "receiver/launcher/writer_prompt.h"

namespace ombrel {

class HandOver {
public:
    /// `logWriter` is the program that is run where nobody listens on the log writer's port.
    HandOver(const ReceiverFiles& files, const ReceiverConfig& config, Child& syslogNg, std::string logWriter);
    HandOver(const HandOver&) = delete;
    HandOver& operator=(const HandOver&) = delete;
    /// Ends the log writer it has started.
    ~HandOver();

    /// Blocks at most 8.5 s. Says how many lines are left, if any; syslog-ng has ended after it in any case.
    void run();

private:
    struct Wanted;
    void handOver();
    bool stopReading(Deadline deadline);
    void end();
    std::optional<long long> held(Deadline deadline) const;
    void sayGoodbyeToSenders() const;
    [[nodiscard]] unsigned long long waiting() const;
    bool pause(Deadline deadline, std::chrono::milliseconds step);
    void standInForWriter(Deadline deadline);
    bool await(Deadline deadline, const Wanted& wanted);

    const ReceiverFiles& files_;
    const ReceiverConfig& config_;
    Child& syslogNg_;
    std::string logWriter_;
    std::vector<Source> heldBack_;
    WriterPrompt prompt_;
    bool holdsNothing_ = false;
    long long lastHeld_ = 0;
    std::optional<Deadline> writerMissedAt_;
    bool writerTried_ = false;
    std::optional<Child> writer_;
};

}  // namespace ombrel
