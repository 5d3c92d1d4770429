// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/interrupt.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <system_error>
#include <thread>

#include "linux/common/fd.h"

namespace ombrel {

struct Interrupt::Watch {
    explicit Watch(std::function<void()> onSignal) : call(std::move(onSignal)) {}

    void run() {
        std::array<pollfd, 2> events = {{{signals.get(), POLLIN, 0}, {end.get(), POLLIN, 0}}};
        for (;;) {
            if (::poll(events.data(), events.size(), -1) < 0 && errno != EINTR) return;
            if (events[1].revents != 0) return;
            signalfd_siginfo info{};
            if ((events[0].revents & POLLIN) == 0 || ::read(signals.get(), &info, sizeof info) != sizeof info)
                continue;
            const int number = static_cast<int>(info.ssi_signo);
            // Whoever says it twice does not want to wait.
            if (came.exchange(number) != 0) ::_exit(128 + number);
            call();
        }
    }

    std::function<void()> call;
    sigset_t before{};
    Fd signals;
    Fd end;
    std::atomic<int> came = 0;
    std::thread thread;
};

namespace {

sigset_t wantedSignals() {
    sigset_t wanted;
    (void)::sigemptyset(&wanted);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        // Whoever started us may want us to go on, such as nohup.
        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) {
            (void)::sigaddset(&wanted, number);
        }
    }
    return wanted;
}

}  // namespace

// Where the watch is not to be had the signals end the program at once, as they usually do.
Interrupt::Interrupt(std::function<void()> onSignal) : watch_(std::make_unique<Watch>(std::move(onSignal))) {
    const sigset_t wanted = wantedSignals();
    watch_->signals.reset(::signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
    watch_->end.reset(::eventfd(0, EFD_CLOEXEC));
    (void)::pthread_sigmask(SIG_BLOCK, nullptr, &watch_->before);
    if (!watch_->signals || !watch_->end) return;
    (void)::pthread_sigmask(SIG_BLOCK, &wanted, nullptr);
    try {
        watch_->thread = std::thread([this] { watch_->run(); });
    } catch (const std::system_error&) {
        (void)::pthread_sigmask(SIG_SETMASK, &watch_->before, nullptr);
    }
}

Interrupt::~Interrupt() {
    if (watch_->thread.joinable()) {
        const std::uint64_t one = 1;
        (void)!::write(watch_->end.get(), &one, sizeof one);  // an eventfd takes it
        watch_->thread.join();
    }
    (void)::pthread_sigmask(SIG_SETMASK, &watch_->before, nullptr);
}

int Interrupt::signal() const {
    return watch_->came;
}

}  // namespace ombrel
