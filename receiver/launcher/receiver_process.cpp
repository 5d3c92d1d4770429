// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/receiver_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <tuple>
#include <utility>

#include "linux/common/tls_files.h"
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
constexpr std::chrono::milliseconds kControlStep{10};
// What somebody may fill a rule file with is told in part.
constexpr std::size_t kMostTold = 100;

// A destination that is not in the next configuration would take its queue with it.
bool keepsDestinations(const ReceiverConfig& next, const ReceiverConfig& present) {
    const std::vector<std::string> names = destinationNames(next.sources);
    const std::set<std::string> kept(names.begin(), names.end());
    const std::vector<std::string> needed = destinationNames(present.sources);
    return std::all_of(needed.begin(), needed.end(), [&](const std::string& name) { return kept.contains(name); });
}

using Stream = std::tuple<std::uint16_t, SourceKind, bool, bool>;
std::set<Stream> streamsOf(const ReceiverConfig& config) {
    std::set<Stream> streams;
    for (const Source& source : config.sources) {
        if (hasPort(source.kind) && isHeldBack(source.kind))
            streams.insert({source.port, source.kind, source.counted, source.raw});
    }
    return streams;
}

// A connection is cut where its listener goes, and goes on as it began where another takes over the port.
bool keepsStreams(const ReceiverConfig& next, const ReceiverConfig& present) {
    const std::set<Stream> kept = streamsOf(next);
    const std::set<Stream> needed = streamsOf(present);
    return std::includes(kept.begin(), kept.end(), needed.begin(), needed.end());
}

// The one receiver that has but one source moves with it; its senders have to be told anyway.
bool canFollowInPlace(const ReceiverConfig& next, const ReceiverConfig& present) {
    return keepsDestinations(next, present) && (next.needsAll || keepsStreams(next, present));
}

bool hasTls(const ReceiverConfig& config) {
    return std::any_of(config.sources.begin(), config.sources.end(),
                       [](const Source& source) { return source.kind == SourceKind::kTls; });
}

// Syslog-ng does not survive a reload in which it cannot read them again.
std::string whatIsWrongWithTls(const ReceiverConfig& config) {
    return hasTls(config) ? whatIsWrongWithTlsFiles(config.keyFile, config.certificateFile) : std::string();
}

// What of it goes into queue files, whichever transport it has.
std::vector<Source> datagramQueues(const std::string& receiver) {
    Source raw;
    raw.raw = true;
    if (receiver == "local") return {};
    return receiver == "custrule" ? std::vector<Source>{Source{}, raw} : std::vector<Source>{Source{}};
}

}  // namespace

void fitToMachine(ReceiverConfig& config) {
    config.ipv6 = canUseIpv6();
    config.receiveBuffer = largestReceiveBuffer();
}

ReceiverProcess::ReceiverProcess(const LauncherPlaces& places, const ReceiverFiles& files, ReceiverConfig config)
    : places_(places), files_(files), wanted_(std::move(config)), readiness_(files, places.notifyFd) {
}

int ReceiverProcess::run() {
    if (const int code = takeSignals()) return code;
    watchSettings();
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

// Who changes the settings restarts the receivers of the settings, but not that of the rules, which need their
// certificate.
void ReceiverProcess::watchSettings() {
    if (wanted_.needsAll || settings_.start(places_.settings.settings)) return;
    (void)failErrno(0, "cannot watch " + places_.settings.settings +
                           "; another certificate is taken up at the next start or reload");
}

int ReceiverProcess::start() {
    config_ = wanted_;
    if (const int code = settle(config_, nullptr)) return code;
    tell(config_.remarks);
    if (hasLinesLeft(files_)) config_.drains = datagramQueues(config_.name);
    if (const int code = writeCheckedConfiguration(places_.syslogNg, files_, renderReceiverConfig(config_))) {
        return code;
    }
    readiness_.begin();
    auto child = Child::start(syslogNgCommand(places_.syslogNg, files_, files_.configuration, allowDescriptors()));
    if (!child) return failErrno(EX_OSERR, "cannot run " + places_.syslogNg);
    syslogNg_.emplace(std::move(*child));
    openPorts();
    return EX_OK;
}

// While syslog-ng starts, which takes longer.
void ReceiverProcess::openPorts() const {
    if (places_.openPorts != nullptr && places_.openPorts() < 0)
        logLine("ombrel-receiver: the firewall does not take up the ports of the rules; the system log says why");
}

// Exit code. What cannot be had now, and can be gone without, is tried again later.
int ReceiverProcess::settle(ReceiverConfig& next, const ReceiverConfig* running) {
    tryAgainAt_.reset();
    if (next.needsAll) return checkResources(next, running, places_.runFolder);
    if (leaveOutUnusable(next, running, places_.runFolder, reservedPorts(places_.settings)))
        tryAgainAt_ = Clock::now() + places_.tryAgain;
    return EX_OK;
}

// Only what is new since the last time.
void ReceiverProcess::tell(const std::vector<std::string>& remarks) {
    std::size_t count = 0;
    for (const std::string& remark : remarks) {
        if (!told_.contains(remark) && ++count <= kMostTold) logToSystem("ombrel-receiver: " + remark);
    }
    if (count > kMostTold)
        logToSystem("ombrel-receiver: and " + std::to_string(count - kMostTold) + " lines more of this kind");
    told_ = std::set<std::string>(remarks.begin(), remarks.end());
}

int ReceiverProcess::timeout() const {
    const int readiness = readiness_.timeout();
    if (!tryAgainAt_) return readiness;
    const int again = pollTimeout(*tryAgainAt_);
    return readiness < 0 ? again : std::min(readiness, again);
}

int ReceiverProcess::serve() {
    for (;;) {
        pollfd all[] = {{signals_.get(), POLLIN, 0},
                        {syslogNg_->handle(), POLLIN, 0},
                        {readiness_.fd(), POLLIN, 0},  // a negative one is left out
                        {reload_ ? reload_->fd() : -1, POLLIN, 0},
                        {settings_.fd(), POLLIN, 0}};
        if (::poll(all, std::size(all), timeout()) < 0 && errno != EINTR)
            return failErrno(EX_OSERR, "cannot wait for syslog-ng");
        if (all[1].revents != 0 && syslogNg_->wait(Clock::now())) {
            const std::string how = syslogNg_->howItEnded();
            removeLogSockets();
            return fail(EX_TEMPFAIL, "syslog-ng ended by itself, " + how);
        }
        readiness_.proceed(syslogNg_->pid(), config_);
        seeReloadThrough();
        const int signal = all[0].revents != 0 ? readSignal() : 0;
        if (signal == SIGTERM || signal == SIGINT) {
            stop();
            return EX_OK;
        }
        if (signal == SIGHUP) {
            if (const int code = followSettings()) return code;
        }
        if (all[4].revents != 0 && settings_.changed()) {
            if (const int code = followCertificate()) return code;
        }
        if (tryAgainAt_ && Clock::now() >= *tryAgainAt_) tryAgain();
    }
}

int ReceiverProcess::readSignal() const {
    signalfd_siginfo signal{};
    return ::read(signals_.get(), &signal, sizeof signal) == sizeof signal ? static_cast<int>(signal.ssi_signo)
                                                                           : 0;
}

void ReceiverProcess::stop() {
    reload_.reset();
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
    auto wanted = receiverConfig(config_.name, places_.settings, error);
    if (!wanted) {
        logLine("ombrel-receiver: goes on as before: " + error);
        return EX_OK;
    }
    // What is in use is better than nothing.
    if (const std::string wrong = hasTls(config_) ? whatIsWrongWithTls(*wanted) : std::string(); !wrong.empty()) {
        logLine("ombrel-receiver: goes on as before: " + wrong);
        return EX_OK;
    }
    fitToMachine(*wanted);
    wanted->writerPort = config_.writerPort;
    wanted->token = config_.token;
    wanted->queueFolder = config_.queueFolder;
    ReceiverConfig next = *wanted;
    next.drains = config_.drains;
    const auto before = tryAgainAt_;
    if (settle(next, &config_) != EX_OK) {
        logLine("ombrel-receiver: goes on as before");
        return EX_OK;
    }
    if (!canFollowInPlace(next, config_)) {
        stop();
        wanted_ = std::move(*wanted);
        return start();
    }
    if (const std::string wrong = useInPlace(next); !wrong.empty()) {
        logLine("ombrel-receiver: goes on as before: " + wrong);
        tryAgainAt_ = before;
        return EX_OK;
    }
    wanted_ = std::move(*wanted);
    return EX_OK;
}

// Likewise.
int ReceiverProcess::followCertificate() {
    std::string error;
    const auto now = receiverConfig(config_.name, places_.settings, error);
    const bool same = !now || (now->keyFile == wanted_.keyFile && now->certificateFile == wanted_.certificateFile);
    return same ? EX_OK : followSettings();
}

void ReceiverProcess::tryAgain() {
    if (reload_) {
        tryAgainAt_ = Clock::now() + places_.tryAgain;
        return;
    }
    ReceiverConfig next = wanted_;
    next.drains = config_.drains;
    if (settle(next, &config_) != EX_OK || next.sources.size() <= config_.sources.size()) return;
    const std::vector<std::string> before = config_.remarks;
    if (const std::string wrong = useInPlace(next); !wrong.empty()) {
        notUsed_.log("ombrel-receiver: cannot take up rules whose ports are free again: " + wrong);
        tryAgainAt_ = Clock::now() + places_.tryAgain;
        return;
    }
    for (const std::string& remark : before) {
        if (!told_.contains(remark)) logLine("ombrel-receiver: no longer so: " + remark);
    }
}

// What keeps it from that; empty when nothing does.
std::string ReceiverProcess::useInPlace(const ReceiverConfig& next) {
    if (std::string wrong = whatIsWrongWithTls(next); !wrong.empty()) return wrong;
    if (writeCheckedConfiguration(places_.syslogNg, files_, renderReceiverConfig(next)) != EX_OK)
        return "the new configuration cannot be used";
    const Deadline deadline = Clock::now() + places_.reload;
    auto reload = askToReload(deadline);
    const auto answer = reload ? answerTo(*reload, deadline) : std::nullopt;
    if (!reload || (answer && !answer->starts_with("OK"))) {
        // It has gone back to the old one by itself; the file is to say the same.
        (void)writeConfiguration(files_, renderReceiverConfig(config_));
        return reload ? "syslog-ng cannot use it" : "syslog-ng does not take commands";
    }
    if (answer) {
        reload_.reset();  // one before it has been outrun
    } else {
        logLine("ombrel-receiver: syslog-ng has not answered yet; it reloads once its batch is stored");
        if (!reload_) previous_ = config_;
        reload_ = std::move(reload);
    }
    config_ = next;
    tell(config_.remarks);
    return {};
}

// The end of a reload that took longer.
void ReceiverProcess::seeReloadThrough() {
    if (!reload_) return;
    const auto state = reload_->proceed();
    if (state == ControlQuestion::State::kOpen) return;
    if (state == ControlQuestion::State::kAnswered && !reload_->answer().starts_with("OK")) {
        logLine("ombrel-receiver: goes on as before: syslog-ng cannot use the new configuration");
        config_ = std::move(previous_);
        (void)writeConfiguration(files_, renderReceiverConfig(config_));
        if (!config_.needsAll) tryAgainAt_ = Clock::now() + places_.tryAgain;
    }
    reload_.reset();
}

// One that has just been started does not listen yet.
std::optional<ControlQuestion> ReceiverProcess::askToReload(Deadline deadline) {
    for (;;) {
        auto question = ControlQuestion::ask(files_.control, "RELOAD");
        if (question || Clock::now() >= deadline) return question;
        if (syslogNg_->wait(std::min(deadline, Clock::now() + kControlStep))) return std::nullopt;
    }
}

}  // namespace ombrel
