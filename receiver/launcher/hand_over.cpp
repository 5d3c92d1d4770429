// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/hand_over.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "linux/common/fd.h"
#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/fail.h"
#include "receiver/launcher/ports.h"

namespace ombrel {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kWhole{6500};
// Senders that never pause are cut off then: more comes as long as it is read.
constexpr std::chrono::milliseconds kReading{3000};
constexpr std::chrono::milliseconds kStep{50};
// A log writer that is restarted is back by then.
constexpr std::chrono::milliseconds kWriterAway{500};
constexpr std::chrono::milliseconds kWriterEnd{1000};

bool reloadsTo(const ReceiverFiles& files, const std::string& text, Deadline deadline) {
    if (!writeConfiguration(files, text)) return false;
    const auto answer = askControlSocket(files.control, "RELOAD", deadline);
    return answer && answer->starts_with("OK");
}

}  // namespace

HandOver::HandOver(const ReceiverFiles& files, const ReceiverConfig& config, Child& syslogNg,
                   std::string logWriter)
    : files_(files), config_(config), syslogNg_(syslogNg), logWriter_(std::move(logWriter)) {
    std::copy_if(config.sources.begin(), config.sources.end(), std::back_inserter(heldBack_),
                 [](const Source& source) { return isHeldBack(source.kind); });
}

HandOver::~HandOver() {
    // It has answered for what it has stored, so killing it loses nothing.
    if (writer_) (void)writer_->end(Clock::now() + kWriterEnd);
}

void HandOver::run() {
    const Deadline end = Clock::now() + kWhole;
    const auto atFirst = held(end);
    if (!atFirst) return;  // it has not begun yet, or is already gone
    lastHeld_ = *atFirst;
    (void)await(std::min(end, Clock::now() + kReading), true);  // a busy sender is no failure
    if (!reloadsTo(files_, renderHandOverConfig(config_), end)) {
        logLine("ombrel-receiver: syslog-ng does not stop reading before it ends; lines of TCP may be lost");
    }
    if (await(end, false) || lastHeld_ == 0) return;
    logLine("ombrel-receiver: lost " + std::to_string(lastHeld_) +
            " lines that could not be handed over to the log writer in time; see the log of pkg-Ombrel-syslog");
}

std::optional<long long> HandOver::held(Deadline deadline) const {
    const auto stats = askControlSocket(files_.control, "STATS", deadline);
    if (!stats) return std::nullopt;
    long long sum = 0;
    for (const Source& source : heldBack_)
        sum += heldLines(*stats, destinationName(source));
    return sum;
}

bool HandOver::nothingWaits() const {
    return std::all_of(heldBack_.begin(), heldBack_.end(),
                       [](const Source& source) { return waitingInKernel(source) == 0; });
}

// Syslog-ng gives no sign when a queue is empty, so it is asked again and again. False when it has ended.
bool HandOver::pause(Deadline deadline) {
    return !syslogNg_.wait(std::min(deadline, Clock::now() + kStep));
}

// Until no line is held, and with `streamsToo` nothing has come that is not read yet; both twice in a row, since
// a line may be on its way between the two. False when that is not so by the deadline.
bool HandOver::await(Deadline deadline, bool streamsToo) {
    int quiet = 0;
    while (Clock::now() < deadline) {
        const bool read = !streamsToo || nothingWaits();
        const auto now = held(deadline);
        if (!now) return false;
        quiet = read && *now == 0 ? quiet + 1 : 0;
        if (quiet == 2) return true;
        if (*now != 0 && *now >= std::exchange(lastHeld_, *now)) standInForWriter(deadline);
        if (!pause(deadline)) return false;
    }
    return false;
}

bool HandOver::writerListens() const {
    const Fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(config_.writerPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

void HandOver::standInForWriter(Deadline deadline) {
    if (writerTried_ || logWriter_.empty()) return;
    if (writerListens()) {
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
