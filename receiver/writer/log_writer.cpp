// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/log_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "linux/common/readiness.h"
#include "receiver/message/destination_name.h"
#include "receiver/store/row_builder.h"
#include "receiver/token.h"

namespace ombrel {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// What could not be stored is not answered at once: the receiver would send it again right away.
constexpr seconds kRefusalPause{1};
constexpr seconds kEndAnswers{2};
constexpr rlim_t kDescriptors = 2048;
constexpr size_t kMaxSchema = 1U << 20;

std::string withErrno(const std::string& text) {
    return text + ": " + std::strerror(errno);
}

int pollTimeout(std::optional<std::chrono::steady_clock::time_point> until) {
    if (!until) return -1;
    const auto left = std::chrono::ceil<milliseconds>(*until - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<milliseconds::rep>(left.count(), 0, 60'000));
}

// It may be given another one at any time.
std::string machineName() {
    std::array<char, kMaxHost + 1> name{};
    const bool known = ::gethostname(name.data(), name.size() - 1) == 0 && name.front() != '\0';
    return known ? name.data() : "localhost";
}

std::optional<LogRow> rowOf(RowBuilder& builder, LineKind kind, const BatchLine& line, std::string_view machine) {
    switch (kind) {
        case LineKind::kOfThisMachine:
            return builder.ofThisMachine(line, machine);
        case LineKind::kWhole:
            return builder.whole(line);
        case LineKind::kMessage:
            break;
    }
    return builder.received(line);
}

}  // namespace

std::optional<std::string> readSmallFile(const std::string& path) {
    const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return std::nullopt;
    std::string text;
    std::array<char, 16384> buffer{};
    for (;;) {
        const ssize_t got = ::read(file.get(), buffer.data(), buffer.size());
        if (got == 0) return text;
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        text.append(buffer.data(), static_cast<size_t>(got));
        if (text.size() > kMaxSchema) {
            errno = EFBIG;
            return std::nullopt;
        }
    }
}

LogWriter::LogWriter(LogWriterOptions options)
    : options_(std::move(options)), quarantine_(options_.runFolder), endpoint_(*this) {
}

LogWriter::~LogWriter() = default;

// Three descriptors for each open database are more than some systems allow without being asked.
void LogWriter::allowManyFiles() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kDescriptors) return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, kDescriptors);
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) logLine(withErrno("cannot open as many files as needed"));
}

bool LogWriter::watchSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    if (::pthread_sigmask(SIG_BLOCK, &set, nullptr) != 0) return false;
    signals_.reset(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    return static_cast<bool>(signals_);
}

void LogWriter::useSettings(const WriterSettings& settings) {
    const bool elsewhere =
        !pool_ || settings.archiveFolder != settings_.archiveFolder || settings.byDevice != settings_.byDevice;
    settings_ = settings;
    policy_.configure(settings.flushRows, seconds(settings.flushSeconds));
    if (!elsewhere) return;
    pool_ = std::make_unique<DatabasePool>(settings.archiveFolder, settings.byDevice, schema_);
    logLine("messages are stored in " + settings.archiveFolder +
            (settings.byDevice ? ", one database for each host" : ", in one database"));
}

int LogWriter::start() {
    // Watched before it is read, so that no change in between is missed.
    if (!watch_.start(options_.settingsFile)) {
        logLine(withErrno("cannot watch the settings file " + options_.settingsFile));
        return EX_CONFIG;
    }
    std::string error;
    const auto settings = readWriterSettings(options_.settingsFile, error);
    if (!settings) {
        logLine(error);
        return EX_CONFIG;
    }
    auto schema = readSmallFile(options_.schemaFile);
    if (!schema) {
        logLine(withErrno("cannot read the layout of log databases " + options_.schemaFile));
        return EX_OSFILE;
    }
    schema_ = std::move(*schema);
    const auto token = readOrMakeToken(options_.runFolder);
    if (!token) {
        logLine(tokenTrouble(options_.runFolder));
        return EX_NOPERM;
    }
    if (!watchSignals()) {
        logLine(withErrno("cannot wait for signals"));
        return EX_OSERR;
    }
    allowManyFiles();
    useSettings(*settings);
    if (!endpoint_.start(options_.port, *token)) {
        logLine(withErrno("cannot listen on 127.0.0.1:" + std::to_string(options_.port)));
        return EX_UNAVAILABLE;
    }
    if (reportReady(std::exchange(options_.notifyFd, -1)) != 0) {
        logLine(withErrno("cannot report that the log writer is ready"));
    }
    return EX_OK;
}

void LogWriter::reloadSettings() {
    if (!watch_.changed()) return;
    std::string error;
    const auto settings = readWriterSettings(options_.settingsFile, error);
    if (!settings) {
        settingsTrouble_.log(error + "; the settings stay as they were");
        return;
    }
    settingsTrouble_.over("the settings can be read again");
    if (!(*settings == settings_)) useSettings(*settings);
}

void LogWriter::keepUnreadable(const Waiting& waiting, const std::string& reason) {
    const std::string what = "a batch of " + std::to_string(waiting.body.size()) + " bytes from " +
                             waiting.receiver + " is unreadable: " + reason;
    if (quarantine_.keep(waiting.receiver, waiting.body, reason)) {
        logLine(what + "; it is kept in " + quarantine_.path());
        endpoint_.answer(waiting.id);
    } else {
        storeTrouble_.log(withErrno(what + "; cannot keep it in " + quarantine_.path()));
        refuseLater(waiting.id);
    }
}

void LogWriter::bodyArrived(BodyId id, const std::string& receiver, std::string body) {
    auto waiting = std::make_unique<Waiting>();
    waiting->id = id;
    waiting->receiver = receiver;
    waiting->body = std::move(body);
    std::string reason;
    if (!readBatch(waiting->body, waiting->lines, reason)) return keepUnreadable(*waiting, reason);
    // A batch without lines is how a receiver that ends asks for a commit of what waits.
    const bool full = waiting->lines.empty() || waiting->lines.size() >= kFullBatchLines ||
                      waiting->body.size() >= kFullBatchBytes;
    policy_.add(waiting->lines.size(), full, Clock::now());
    waiting_.push_back(std::move(waiting));
}

void LogWriter::refused(const std::string& reason) {
    strangers_.log(reason + " was refused");
}

void LogWriter::refuseLater(BodyId id) {
    refusals_.push_back({Clock::now() + kRefusalPause, id});
}

void LogWriter::closeRefused() {
    const auto now = Clock::now();
    const auto later = std::find_if(refusals_.begin(), refusals_.end(),
                                    [now](const Refusal& refusal) { return refusal.when > now; });
    std::for_each(refusals_.begin(), later, [this](const Refusal& refusal) { endpoint_.drop(refusal.id); });
    refusals_.erase(refusals_.begin(), later);
}

void LogWriter::flush() {
    RowBuilder builder(clock_);
    const std::string machine = machineName();
    std::vector<RowBatch> batches;
    batches.reserve(waiting_.size());
    for (const auto& waiting : waiting_) {
        const LineKind kind = lineKindOf(waiting->receiver);
        RowBatch& batch = batches.emplace_back();
        batch.receiver = waiting->receiver;
        batch.rows.reserve(waiting->lines.size());
        for (const BatchLine& line : waiting->lines) {
            const auto row = rowOf(builder, kind, line, machine);
            if (row) batch.rows.push_back(*row);
        }
    }
    const StoreOutcome outcome = pool_->store(batches, clock_);
    if (!outcome.notice.empty()) logLine(outcome.notice);
    if (outcome.stored) {
        storeTrouble_.over("messages are stored again");
    } else {
        storeTrouble_.log(outcome.error + "; the receivers keep the messages and send them again");
    }
    for (const auto& waiting : waiting_) {
        if (outcome.stored) {
            endpoint_.answer(waiting->id);
        } else {
            refuseLater(waiting->id);
        }
    }
    waiting_.clear();
    policy_.clear();
}

void LogWriter::waitForWork() {
    std::optional<Clock::time_point> until = policy_.deadline();
    const auto notLaterThan = [&until](Clock::time_point when) { until = until ? std::min(*until, when) : when; };
    if (!refusals_.empty()) notLaterThan(refusals_.front().when);
    if (const auto ms = endpoint_.nextTimeoutMs()) notLaterThan(Clock::now() + milliseconds(*ms));
    std::array<pollfd, 3> fds{
        {{endpoint_.fd(), POLLIN, 0}, {watch_.fd(), POLLIN, 0}, {signals_.get(), POLLIN, 0}}};
    if (::poll(fds.data(), fds.size(), pollTimeout(until)) < 0 && errno != EINTR) {
        logLine(withErrno("cannot wait for batches"));
        ending_ = true;
        return;
    }
    if (fds[1].revents != 0) reloadSettings();
    signalfd_siginfo signal{};
    if (fds[2].revents != 0 && ::read(signals_.get(), &signal, sizeof signal) > 0) ending_ = true;
    endpoint_.run();
}

int LogWriter::run() {
    while (!ending_) {
        waitForWork();
        if (policy_.isDue(Clock::now())) flush();
        closeRefused();
    }
    finish();
    return EX_OK;
}

void LogWriter::finish() {
    endpoint_.stopListening();
    endpoint_.run();
    if (!waiting_.empty()) flush();
    const auto until = Clock::now() + kEndAnswers;
    while (endpoint_.hasUnsentAnswers() && Clock::now() < until) {
        endpoint_.run();
        pollfd one{endpoint_.fd(), POLLIN, 0};
        if (endpoint_.hasUnsentAnswers() && ::poll(&one, 1, 50) < 0 && errno != EINTR) break;
    }
}

}  // namespace ombrel
