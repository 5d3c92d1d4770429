// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/hand_over.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "linux/common/fd.h"
#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/fail.h"
#include "receiver/launcher/goodbye.h"
#include "receiver/launcher/ports.h"
#include "receiver/message/batch_frame.h"

namespace ombrel {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kWhole{6500};
// Senders that never pause are cut off then: more comes as long as it is read.
constexpr std::chrono::milliseconds kReading{3000};
constexpr std::chrono::milliseconds kReadingStep{20};
constexpr std::chrono::milliseconds kAnswerStep{5};
constexpr std::chrono::seconds kEnd{2};
// A log writer that is restarted is back by then.
constexpr std::chrono::milliseconds kWriterAway{500};
constexpr std::chrono::milliseconds kWriterEnd{1000};

}  // namespace

// What is looked at every step, so many times in a row.
struct HandOver::Wanted {
    bool nothingWaits = false;  // what has come is read, and senders have been told to end
    long long fewerThan = 0;    // lines held
    int times = 0;
    std::chrono::milliseconds step{};
};

HandOver::HandOver(const ReceiverFiles& files, const ReceiverConfig& config, Child& syslogNg,
                   std::string logWriter)
    : files_(files),
      config_(config),
      syslogNg_(syslogNg),
      logWriter_(std::move(logWriter)),
      prompt_(WriterPrompt::of(config.writerPort, config.name + "-end", config.token)) {
    std::copy_if(config.sources.begin(), config.sources.end(), std::back_inserter(heldBack_),
                 [](const Source& source) { return isHeldBack(source.kind); });
}

HandOver::~HandOver() {
    // It has answered for what it has stored, so killing it loses nothing.
    if (writer_) (void)writer_->end(Clock::now() + kWriterEnd);
}

void HandOver::run() {
    if (!heldBack_.empty()) handOver();
    end();
}

void HandOver::handOver() {
    const Deadline deadline = Clock::now() + kWhole;
    const auto atFirst = held(deadline);
    if (!atFirst) return;  // it has not begun yet, or is already gone
    lastHeld_ = *atFirst;
    // A sender that goes on and on is no failure. No connection waits for room with fewer lines than these.
    const bool isRead = await(std::min(deadline, Clock::now() + kReading),
                              {true, static_cast<long long>(kFullBatchLines), 5, kReadingStep});
    const unsigned long long unread = isRead ? 0 : waiting();
    if (!stopReading(deadline)) {
        logLine("ombrel-receiver: syslog-ng does not stop reading before it ends; lines of TCP may be lost");
    }
    if (unread != 0) {
        logLine("ombrel-receiver: lost up to " + std::to_string(unread) +
                " bytes of senders over TCP that could not be read in time before its end");
    }
    // Twice, since a line may be on its way between the two counters.
    holdsNothing_ = await(deadline, {false, 1, 2, kAnswerStep});
    if (holdsNothing_ || lastHeld_ == 0) return;
    logLine("ombrel-receiver: lost " + std::to_string(lastHeld_) +
            " lines that could not be handed over to the log writer in time; see the log of pkg-Ombrel-syslog");
}

// It answers when the batch on its way has been answered.
bool HandOver::stopReading(Deadline deadline) {
    if (!writeConfiguration(files_, renderHandOverConfig(config_))) return false;
    auto question = ControlQuestion::ask(files_.control, "RELOAD");
    auto state = question ? question->proceed() : ControlQuestion::State::kFailed;
    while (state == ControlQuestion::State::kOpen && Clock::now() < deadline) {
        (void)prompt_.ask();  // nobody there: then there is no batch on its way
        pollfd one{question->fd(), POLLIN, 0};
        (void)::poll(&one, 1, pollTimeout(std::min(deadline, Clock::now() + kAnswerStep)));
        state = question->proceed();
    }
    // For the next start, which need not look for errors in what has been in use.
    (void)writeConfiguration(files_, renderReceiverConfig(config_));
    return state == ControlQuestion::State::kAnswered && question->answer().starts_with("OK");
}

void HandOver::end() {
    if (holdsNothing_ && heldBack_.size() == config_.sources.size() && config_.drains.empty()) {
        syslogNg_.signal(SIGKILL);
        (void)syslogNg_.wait(Clock::now() + kEnd);
        (void)::unlink(files_.pid.c_str());  // which it removes itself otherwise
        return;
    }
    const Deadline deadline = Clock::now() + kEnd;
    syslogNg_.signal(SIGTERM);
    while (pause(deadline, kAnswerStep)) {
        if (Clock::now() >= deadline) {
            logLine(
                "ombrel-receiver: syslog-ng did not end in time and was killed; datagrams it held may be lost");
            return syslogNg_.signal(SIGKILL);
        }
        (void)prompt_.ask();
    }
}

std::optional<long long> HandOver::held(Deadline deadline) const {
    const auto stats = askControlSocket(files_.control, "STATS", deadline);
    if (!stats) return std::nullopt;
    long long sum = 0;
    for (const std::string& destination : destinationNames(heldBack_))
        sum += heldLines(*stats, destination);
    return sum;
}

void HandOver::sayGoodbyeToSenders() const {
    std::set<std::uint16_t> ports;
    for (const Source& source : heldBack_) {
        if (hasPort(source.kind)) ports.insert(source.port);
    }
    if (!ports.empty()) (void)sayGoodbye(syslogNg_, ports);
}

/// Bytes that have come and that syslog-ng has not read yet; a connection that it has not taken counts as one.
unsigned long long HandOver::waiting() const {
    const PortTable table;
    unsigned long long sum = 0;
    for (const Source& source : heldBack_)
        sum += table.waiting(source);
    return sum;
}

// Syslog-ng gives no sign when a queue is empty, so it is asked again and again. False when it has ended.
bool HandOver::pause(Deadline deadline, std::chrono::milliseconds step) {
    return !syslogNg_.wait(std::min(deadline, Clock::now() + step));
}

// Also true when no line is held and none waits twice in a row. False when it is not so by the deadline.
bool HandOver::await(Deadline deadline, const Wanted& wanted) {
    int good = 0;
    int quiet = 0;
    while (Clock::now() < deadline) {
        if (wanted.nothingWaits) sayGoodbyeToSenders();
        const bool read = !wanted.nothingWaits || waiting() == 0;
        const auto now = held(deadline);
        if (!now) return false;
        good = read && *now < wanted.fewerThan ? good + 1 : 0;
        quiet = read && *now == 0 ? quiet + 1 : 0;
        if (good == wanted.times || quiet == 2) return true;
        if (*now != 0 && *now >= std::exchange(lastHeld_, *now)) standInForWriter(deadline);
        if (!wanted.nothingWaits && *now != 0) (void)prompt_.ask();
        if (!pause(deadline, wanted.step)) return false;
    }
    return false;
}

void HandOver::standInForWriter(Deadline deadline) {
    if (writerTried_ || logWriter_.empty()) return;
    if (prompt_.ask()) {
        writerMissedAt_.reset();
        return;
    }
    if (!writerMissedAt_) writerMissedAt_ = Clock::now();
    if (Clock::now() - *writerMissedAt_ < kWriterAway) return;
    writerTried_ = true;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return;
    const Fd ready(ends[0]);
    Fd notify(ends[1]);
    auto writer = Child::start({logWriter_, "--listen=127.0.0.1:" + std::to_string(config_.writerPort),
                                "--notify-fd=" + std::to_string(notify.get())},
                               notify.get());
    if (!writer) {
        (void)failErrno(0, "cannot run " + logWriter_);
        return;
    }
    writer_.emplace(std::move(*writer));
    logLine("ombrel-receiver: the log writer is away; another one takes what is left");
    notify.reset();  // so that its end can be seen
    pollfd one{ready.get(), POLLIN, 0};
    (void)::poll(&one, 1, pollTimeout(deadline));  // what it says or not, syslog-ng goes on trying
}

}  // namespace ombrel
