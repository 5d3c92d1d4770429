// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// From the start of a receiver's syslog-ng to the word to the service manager that it is ready: until it answers
// on its control socket and has bound what it listens on. To be driven by the receiver's one poll loop.
#pragma once

#include <sys/types.h>

#include <optional>

#include "linux/common/fd.h"
#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/receiver_config.h"
#include "receiver/launcher/receiver_files.h"

namespace ombrel {

/// Whether the process has bound all that the receiver listens on; the journal and the kernel are not bound.
bool listensOnAll(pid_t process, const ReceiverConfig& config);

class ReadinessWatch {
public:
    /// `notifyFd` is for reportReady().
    ReadinessWatch(const ReceiverFiles& files, int notifyFd) : files_(files), notifyFd_(notifyFd) {}

    /// To be called before syslog-ng is started. Says a line when it is not ready 30 s later.
    void begin();
    [[nodiscard]] int fd() const noexcept;
    /// Milliseconds; -1 when there is nothing to wait for.
    [[nodiscard]] int timeout() const noexcept;
    /// When the descriptor is readable or the time is over.
    void proceed(pid_t process, const ReceiverConfig& config);

private:
    enum class Step { kNothing, kSocket, kAnswer, kPorts };
    void report();

    const ReceiverFiles& files_;
    int notifyFd_;
    bool reported_ = false;
    Step step_ = Step::kNothing;
    Deadline deadline_{};
    Fd folder_;
    std::optional<ControlQuestion> question_;
};

}  // namespace ombrel
