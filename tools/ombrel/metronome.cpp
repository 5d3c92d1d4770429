// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/metronome.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>

#include "linux/common/readiness.h"

namespace ombrel {

namespace {

volatile std::sig_atomic_t endingFd = -1;

/// A handler and no blocked signal: what is started meanwhile would inherit the block.
extern "C" void askToEnd(int /*signal*/) {
    const int kept = errno;
    const std::uint64_t one = 1;
    (void)!::write(endingFd, &one, sizeof one);  // it has room for 2^64 - 2 signals
    errno = kept;
}

bool handle(int signal) {
    struct sigaction action {};
    action.sa_handler = askToEnd;
    action.sa_flags = SA_RESTART;  // nothing of what is under way is broken off
    return ::sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

Metronome::Metronome() = default;

Metronome::~Metronome() {
    if (!ending_) return;
    (void)std::signal(SIGTERM, SIG_DFL);
    (void)std::signal(SIGINT, SIG_DFL);
    endingFd = -1;
}

bool Metronome::begin(int seconds, int readyFd) {
    ending_.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    timer_.reset(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC));
    if (!ending_ || !timer_) return false;
    endingFd = ending_.get();
    const itimerspec beats{{seconds, 0}, {seconds, 0}};
    return handle(SIGTERM) && handle(SIGINT) && ::timerfd_settime(timer_.get(), 0, &beats, nullptr) == 0 &&
           reportReady(readyFd) == 0;
}

bool Metronome::isAskedToEnd() const {
    pollfd ending{ending_.get(), POLLIN, 0};
    return ::poll(&ending, 1, 0) == 1;
}

bool Metronome::await() {
    for (;;) {
        std::array<pollfd, 2> events{{{ending_.get(), POLLIN, 0}, {timer_.get(), POLLIN, 0}}};
        if (::poll(events.data(), events.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (events[0].revents != 0) return false;
        std::uint64_t beats = 0;
        if (::read(timer_.get(), &beats, sizeof beats) == sizeof beats) return true;
    }
}

}  // namespace ombrel
