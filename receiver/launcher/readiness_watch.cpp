// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/readiness_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <utility>

#include "linux/common/readiness.h"
#include "receiver/launcher/fail.h"
#include "receiver/launcher/log_socket.h"
#include "receiver/launcher/ports.h"

namespace ombrel {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kLongest{30};
// For what gives no sign: a socket file that is there but not listened on yet, and a port.
constexpr std::chrono::milliseconds kStep{10};

void drain(int fd) {
    alignas(inotify_event) std::array<char, 4096> buffer;
    while (::read(fd, buffer.data(), buffer.size()) > 0) {
    }
}

}  // namespace

bool listensOnAll(pid_t process, const ReceiverConfig& config) {
    const PortTable table;
    const std::set<Inode> held = socketsOf(process);
    return std::all_of(config.sources.begin(), config.sources.end(), [&](const Source& source) {
        if (hasPort(source.kind)) return table.hasBound(source, held);
        return source.kind != SourceKind::kLogSocket || lookAtLogSocket(source.path) == LogSocket::kTaken;
    });
}

void ReadinessWatch::begin() {
    if (reported_) return;
    question_.reset();
    // One of an earlier life says nothing.
    (void)::unlink(files_.control.c_str());
    folder_.reset(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!folder_ || ::inotify_add_watch(folder_.get(), files_.folder.c_str(), IN_CREATE) < 0) folder_.reset();
    step_ = Step::kSocket;
    deadline_ = Clock::now() + kLongest;
}

int ReadinessWatch::fd() const noexcept {
    if (step_ == Step::kSocket) return folder_.get();
    return step_ == Step::kAnswer ? question_->fd() : -1;
}

int ReadinessWatch::timeout() const noexcept {
    if (step_ == Step::kNothing) return -1;
    const bool givesSign = step_ == Step::kAnswer ||
                           (step_ == Step::kSocket && folder_ && ::access(files_.control.c_str(), F_OK) != 0);
    return pollTimeout(givesSign ? deadline_ : std::min(deadline_, Clock::now() + kStep));
}

void ReadinessWatch::proceed(pid_t process, const ReceiverConfig& config) {
    if (step_ == Step::kNothing) return;
    if (step_ == Step::kSocket) {
        if (folder_) drain(folder_.get());
        question_ = ControlQuestion::ask(files_.control, "STATS");
        if (question_) step_ = Step::kAnswer;
    }
    if (step_ == Step::kAnswer) {
        const auto state = question_->proceed();
        if (state == ControlQuestion::State::kAnswered) step_ = Step::kPorts;
        if (state == ControlQuestion::State::kFailed) step_ = Step::kSocket;
    }
    if (step_ == Step::kPorts && listensOnAll(process, config)) return report();
    if (Clock::now() < deadline_) return;
    step_ = Step::kNothing;
    logLine("ombrel-receiver: syslog-ng is not ready after 30 s; its own lines may say why");
}

void ReadinessWatch::report() {
    step_ = Step::kNothing;
    reported_ = true;
    question_.reset();
    folder_.reset();
    if (reportReady(std::exchange(notifyFd_, -1)) != 0)
        (void)failErrno(0, "cannot report that the receiver is ready");
}

}  // namespace ombrel
