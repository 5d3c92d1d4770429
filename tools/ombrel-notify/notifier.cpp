// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/notifier.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/statvfs.h>
#include <sys/timerfd.h>
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <utility>

#include "linux/common/readiness.h"
#include "linux/vesksyslog/event_line.h"
#include "tools/ombrel-notify/boot_clock.h"

namespace ombrel {

namespace {

// The order in which they are added to the watch.
constexpr unsigned kSettingsBit = 1;
constexpr unsigned kEventsBit = 2;

std::string reason(int error) {
    return std::string(std::strerror(error)) + remedyFor(error);
}

Fd openSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int one : {SIGTERM, SIGINT, SIGHUP})
        ::sigaddset(&signals, one);
    if (::sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) return {};
    return Fd(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

Fd openTimer(std::chrono::seconds interval) {
    Fd timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    const itimerspec times{{interval.count(), 0}, {interval.count(), 0}};
    if (timer && ::timerfd_settime(timer.get(), 0, &times, nullptr) != 0) timer.reset();
    return timer;
}

}  // namespace

Notifier::Notifier(NotifyOptions options, NoticePolicy::Sink sink)
    : options_(std::move(options)),
      boot_(bootName()),
      policy_(options_.quietTime, std::move(sink)),
      events_(options_.eventFile) {
}

int Notifier::run() {
    signals_ = openSignals();
    timer_ = openTimer(options_.interval);
    if (!signals_ || !timer_ || !files_.start()) {
        complain(std::string("cannot wait for signals, time and files: ") + std::strerror(errno));
        return EX_OSERR;
    }
    if (!prepare()) return EX_TEMPFAIL;
    if (reportReady(options_.notifyFd) != 0) complain("cannot report readiness: " + reason(errno));
    return loop();
}

// The watch is there before the first look, so that nothing falls between them.
bool Notifier::prepare() {
    if (const int error = stateFolder_.open(options_.stateFolder); error == EWOULDBLOCK) {
        complain("another ombrel-notify is at work; stop it first (ombrel job stop syslog-notify)");
        return false;
    } else if (error != 0) {
        complaints_.say("state", "what has been told cannot be kept in " + options_.stateFolder +
                                     " and will be forgotten at a restart: " + reason(error));
    }
    saved_ = stateFolder_.load(boot_);
    if (saved_) {
        if (saved_->sockets) drops_.restore(*saved_->sockets);
        policy_.restore(saved_->notices);
    }
    events_.start(saved_ ? std::optional(saved_->events) : std::nullopt);
    files_.add(options_.settingsFile, IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE);
    files_.add(options_.eventFile, IN_MODIFY | IN_MOVED_TO | IN_CREATE);
    look();
    return true;
}

int Notifier::loop() {
    enum { kSignals, kTimer, kFiles, kCount };
    std::array<pollfd, kCount> waiting{};
    waiting[kSignals] = {signals_.get(), POLLIN, 0};
    waiting[kTimer] = {timer_.get(), POLLIN, 0};
    waiting[kFiles] = {files_.fd(), POLLIN, 0};
    for (;;) {
        if (::poll(waiting.data(), waiting.size(), -1) < 0) {
            if (errno == EINTR) continue;
            complain(std::string("cannot wait: ") + std::strerror(errno));
            return EX_OSERR;
        }
        if (waiting[kSignals].revents != 0 && takeSignals()) return EX_OK;
        std::uint64_t expirations = 0;
        if (waiting[kTimer].revents != 0 && ::read(timer_.get(), &expirations, sizeof expirations) > 0) look();
        if (waiting[kFiles].revents == 0) continue;
        const unsigned changed = files_.changed();
        if ((changed & kSettingsBit) != 0) readSettings();
        if ((changed & kEventsBit) != 0) readEvents();
        if (changed != 0) saveState();
    }
}

/// Whether to end.
bool Notifier::takeSignals() {
    bool ends = false;
    signalfd_siginfo signal{};
    while (::read(signals_.get(), &signal, sizeof signal) == sizeof signal) {
        if (signal.ssi_signo == SIGHUP) {
            readSettings();
        } else {
            ends = true;
        }
    }
    return ends;
}

void Notifier::readSettings() {
    NotifySettings settings = readNotifySettings(options_.settingsFile);
    if (settings.problem.empty()) {
        complaints_.over("settings");
    } else {
        complaints_.say("settings", settings.problem + "; what depends on it is not watched as it should be");
        settings.udpPorts.merge(settings_.udpPorts);  // what was known before still is the best that is known
        if (settings.destination.empty()) settings.destination = settings_.destination;
    }
    settings_ = std::move(settings);
    if (!settings_.destination.empty()) policy_.watchDestination(settings_.destination);
}

void Notifier::readEvents() {
    const long long now = bootSeconds();
    const int error = events_.read([&](std::string_view line) {
        if (const auto event = readEventLine(line)) policy_.event(*event, now);
    });
    if (error == 0) return complaints_.over("events");
    complaints_.say("events", options_.eventFile + " cannot be read: " + reason(error));
}

void Notifier::look() {
    if (files_.refresh()) {
        complaints_.over("watch");
    } else {
        complaints_.say("watch",
                        "the folder of the settings or of the events cannot be watched, so changes are seen "
                        "a little later: " +
                            reason(errno));
    }
    readSettings();
    readEvents();
    lookAtSockets();
    lookAtFreeSpace();
    policy_.tick(bootSeconds());
    saveState();
}

void Notifier::lookAtSockets() {
    if (settings_.udpPorts.empty() && !settings_.problem.empty()) return;
    std::vector<UdpSocket> sockets;
    for (const char* const table : {"/udp", "/udp6"}) {
        std::ifstream file(options_.procNetFolder + table);  // a machine without IPv6 has no second one
        const auto more = udpSocketsOf(file, settings_.udpPorts);
        sockets.insert(sockets.end(), more.begin(), more.end());
    }
    const long long now = bootSeconds();
    for (const auto& [port, lost] : drops_.look(sockets))
        policy_.datagramsLost(port, lost, now);
}

void Notifier::lookAtFreeSpace() {
    if (settings_.destination.empty()) return;
    struct statvfs volume {};
    if (::statvfs(settings_.destination.c_str(), &volume) != 0) {
        complaints_.say("volume", "free space of " + settings_.destination + " is not known: " + reason(errno));
        return;
    }
    complaints_.over("volume");
    const unsigned long long bytes = static_cast<unsigned long long>(volume.f_bavail) * volume.f_frsize;
    policy_.freeSpace(static_cast<long long>(bytes >> 20U), settings_.freeMib);
}

void Notifier::saveState() {
    NotifyState state{events_.position(), std::nullopt, policy_.record()};
    if (drops_.hasLooked()) state.sockets = drops_.sockets();
    if (saved_ && *saved_ == state) return;
    if (const int error = stateFolder_.save(state, boot_); error == 0) {
        complaints_.over("state");
        saved_ = std::move(state);
    } else if (error != EBADF) {  // said when the folder could not be had
        complaints_.say("state",
                        "what has been told cannot be kept in " + options_.stateFolder + ": " + reason(error));
    }
}

}  // namespace ombrel
