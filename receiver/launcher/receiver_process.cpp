// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>

#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/fail.h"
#include "receiver/launcher/hand_over.h"
#include "receiver/launcher/log_socket.h"
#include "receiver/launcher/ports.h"
#include "receiver/launcher/receiver_settings.h"
#include "receiver/launcher/resources.h"

namespace ombrel {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kReload{5};

bool hasKind(const ReceiverConfig& config, SourceKind kind) {
    return std::any_of(config.sources.begin(), config.sources.end(),
                       [kind](const Source& source) { return source.kind == kind; });
}

// A destination that is not in the next configuration would take its queue with it.
bool hasSameDestinations(const ReceiverConfig& one, const ReceiverConfig& other) {
    return one.sources.size() == other.sources.size() &&
           std::all_of(one.sources.begin(), one.sources.end(),
                       [&](const Source& source) { return hasKind(other, source.kind); });
}

}  // namespace

void fitToMachine(ReceiverConfig& config) {
    config.ipv6 = canUseIpv6();
    config.receiveBuffer = largestReceiveBuffer();
}

ReceiverProcess::ReceiverProcess(const LauncherPlaces& places, const ReceiverFiles& files, ReceiverConfig config)
    : places_(places), files_(files), config_(std::move(config)), readiness_(files, places.notifyFd) {
}

int ReceiverProcess::run() {
    if (const int code = takeSignals()) return code;
    if (const int code = start()) return code;
    return serve();
}

int ReceiverProcess::takeSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&set, signal);
    if (::sigprocmask(SIG_BLOCK, &set, nullptr) != 0) return failErrno(EX_OSERR, "cannot take signals");
    signals_.reset(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    return signals_ ? EX_OK : failErrno(EX_OSERR, "cannot take signals");
}

int ReceiverProcess::start() {
    if (const int code = checkResources(config_, nullptr, places_.runFolder)) return code;
    if (const int code = writeCheckedConfiguration(places_.syslogNg, files_, renderReceiverConfig(config_))) {
        return code;
    }
    readiness_.begin();
    auto child = Child::start(syslogNgCommand(places_.syslogNg, files_, files_.configuration));
    if (!child) return failErrno(EX_OSERR, "cannot run " + places_.syslogNg);
    syslogNg_.emplace(std::move(*child));
    return EX_OK;
}

int ReceiverProcess::serve() {
    for (;;) {
        pollfd all[] = {{signals_.get(), POLLIN, 0},
                        {syslogNg_->handle(), POLLIN, 0},
                        {readiness_.fd(), POLLIN, 0}};  // a negative one is left out
        if (::poll(all, 3, readiness_.timeout()) < 0 && errno != EINTR)
            return failErrno(EX_OSERR, "cannot wait for syslog-ng");
        if (all[1].revents != 0 && syslogNg_->wait(Clock::now())) {
            const std::string how = syslogNg_->howItEnded();
            removeLogSockets();
            return fail(EX_TEMPFAIL, "syslog-ng ended by itself, " + how);
        }
        readiness_.proceed(syslogNg_->pid(), config_);
        const int signal = all[0].revents != 0 ? readSignal() : 0;
        if (signal == SIGTERM || signal == SIGINT) {
            stop();
            return EX_OK;
        }
        if (signal == SIGHUP) {
            if (const int code = followSettings()) return code;
        }
    }
}

int ReceiverProcess::readSignal() const {
    signalfd_siginfo signal{};
    return ::read(signals_.get(), &signal, sizeof signal) == sizeof signal ? static_cast<int>(signal.ssi_signo)
                                                                           : 0;
}

void ReceiverProcess::stop() {
    HandOver(files_, config_, *syslogNg_, places_.logWriter).run();
    syslogNg_.reset();
    removeLogSockets();
    (void)::unlink(silentSocket(config_).c_str());  // it may not have come so far as to make it
}

// Syslog-ng leaves them behind; whoever has taken the name meanwhile keeps it.
void ReceiverProcess::removeLogSockets() const {
    for (const Source& source : config_.sources) {
        if (source.kind == SourceKind::kLogSocket) removeStaleLogSocket(source.path);
    }
}

// 0, also when the settings cannot be used; otherwise the receiver ends with this exit code.
int ReceiverProcess::followSettings() {
    std::string error;
    auto next = receiverConfig(config_.name, places_.settingsFile, error);
    if (!next) {
        logLine("ombrel-receiver: goes on as before: " + error);
        return EX_OK;
    }
    fitToMachine(*next);
    next->writerPort = config_.writerPort;
    next->token = config_.token;
    next->queueFolder = config_.queueFolder;
    if (checkResources(*next, &config_, places_.runFolder) != EX_OK) {
        logLine("ombrel-receiver: goes on as before");
        return EX_OK;
    }
    if (hasSameDestinations(config_, *next)) return useInPlace(*next);
    stop();
    config_ = std::move(*next);
    return start();
}

int ReceiverProcess::useInPlace(const ReceiverConfig& next) {
    if (writeCheckedConfiguration(places_.syslogNg, files_, renderReceiverConfig(next)) != EX_OK) {
        logLine("ombrel-receiver: goes on as before");
        return EX_OK;
    }
    const auto answer = askControlSocket(files_.control, "RELOAD", Clock::now() + kReload);
    if (answer && !answer->starts_with("OK")) {
        // It has gone back to the old one by itself; the file is to say the same.
        (void)writeConfiguration(files_, renderReceiverConfig(config_));
        logLine("ombrel-receiver: syslog-ng cannot use the new settings and goes on as before");
        return EX_OK;
    }
    if (!answer) logLine("ombrel-receiver: syslog-ng has not answered yet; it reloads once its batch is stored");
    config_ = next;
    return EX_OK;
}

}  // namespace ombrel
