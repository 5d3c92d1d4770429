// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "linux/common/fd.h"
#include "receiver/launcher/child.h"

namespace ombrel {

/// A command such as "STATS" or "RELOAD" on its way to a syslog-ng and back. A reload answers once it is done,
/// which waits for the answer to a batch on its way.
class ControlQuestion {
public:
    enum class State { kOpen, kAnswered, kFailed };

    /// Nothing when nobody listens there.
    static std::optional<ControlQuestion> ask(const std::string& path, std::string_view command);
    /// Readable when there is more of the answer.
    [[nodiscard]] int fd() const noexcept { return socket_.get(); }
    /// Takes what is there.
    State proceed();
    [[nodiscard]] const std::string& answer() const noexcept { return answer_; }

private:
    explicit ControlQuestion(Fd socket) : socket_(std::move(socket)) {}

    Fd socket_;
    std::string answer_;
};

/// The whole answer; nothing when there is none by the deadline.
std::optional<std::string> answerTo(ControlQuestion& question, Deadline deadline);

/// The whole answer of a syslog-ng; nothing when there is none by the deadline.
std::optional<std::string> askControlSocket(const std::string& path, std::string_view command, Deadline deadline);

/// Whether a syslog-ng answers on its control socket within `timeout`.
bool answersOnControlSocket(const std::string& path, std::chrono::milliseconds timeout);

/// Lines that syslog-ng has taken for the destination and has no answer for yet: in its queue or in a batch on
/// its way. From an answer to "STATS"; a destination that is not in there holds none. Lines that came out of a
/// queue file are not counted.
long long heldLines(std::string_view stats, std::string_view destination);

}  // namespace ombrel
