// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/stop_signals.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

namespace ombrel {

namespace {

// A signal handler knows nothing but what has a place of its own.
volatile std::sig_atomic_t isAsked = 0;
int descriptor = -1;  // stays open until the end

extern "C" void askToStop(int /*signal*/) {
    const int code = errno;
    isAsked = 1;
    const std::uint64_t one = 1;
    (void)!::write(descriptor, &one, sizeof one);
    errno = code;
}

// Without SA_RESTART: an output that nobody takes does not keep the program from ending.
bool stopOn(int signal) {
    struct sigaction before {};
    if (::sigaction(signal, nullptr, &before) != 0) return false;
    if (before.sa_handler == SIG_IGN) return true;
    struct sigaction action {};
    action.sa_handler = askToStop;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    return ::sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

bool takeStopSignals() {
    descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return descriptor >= 0 && stopOn(SIGINT) && stopOn(SIGTERM) && stopOn(SIGHUP);
}

bool stopAsked() {
    return isAsked != 0;
}

int stopDescriptor() {
    return descriptor;
}

}  // namespace ombrel
