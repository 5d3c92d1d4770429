// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Nothing is parsed here: messages travel as they came, in the frame of a batch, and the log writer has the
// one parser for them. What is in the frame and why:
//
// - flags(no-parse): MESSAGE is the text as it came. A line of TCP ends at a line break or a NUL, a datagram and a
//   counted frame where they end. So the one is framed by a line break, the others by their length; counting
//   costs.
// - HOST_FROM is the sender's address in text, since no names are asked for; of this machine it is its name.
// - The body of a request must not hold a NUL, since libcurl ends it there: those of a message become #000.
// - The journal gives fields, not lines: they are put together as RFC 5424 has them. The kernel's lines get such a
//   header, too, behind which its own time since the start stays in the text.
// - Each kind of source has a destination of its own, so that what may be dropped does not stand in the same queue
//   as what is held back, and so that the log writer can tell from the destination what the lines are. Sources of
//   one kind share one: a thousand of them would be a thousand connections to the log writer and queue files.
// - batch-timeout is short: it is the log writer that waits before it commits.
// - A queue file is taken up again only where its destination is there: one that has lines left gets a path from a
//   source that never says anything when nothing leads to it any more.
// - Datagrams cannot be held back, so what their queue in memory cannot take goes into a file. Lines of TCP wait
//   in their connections instead: a queue file would take them from there as fast as they come and cost more
//   than storing them.
// - so-reuseport: the two receivers of the settings may share a port for datagrams, each in its own process.
// Always,
//   since the settings of one may come to name the port that the other has already. Rules share none: what one
//   keeps whole the other takes apart.
// - timeout is long: an answer comes after the commit, and a disk may be slow.
#include "receiver/launcher/receiver_config.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

#include "receiver/message/batch_frame.h"
#include "receiver/message/destination_name.h"

namespace ombrel {

namespace {

constexpr int kMaxMessageBytes = 128 << 10;
constexpr int kMaxConnections = 100;
// Lines a connection may have on the way: two full batches, so that the next fills while one is committed.
constexpr int kConnectionWindow = 2 * static_cast<int>(kFullBatchLines);
constexpr int kDatagramQueueLines = 300'000;
constexpr int kLogSocketQueueLines = 100'000;
constexpr long long kQueueFileBytes = 1LL << 30;
constexpr int kFetchLimit = 1000;
// Until a batch is sent that is not full; nothing fills it any more when the receiver is about to end.
constexpr int kBatchMilliseconds = 100;
constexpr int kLastBatchMilliseconds = 1;

const char* sourceName(SourceKind kind) {
    switch (kind) {
        case SourceKind::kUdp:
            return "udp";
        case SourceKind::kTcp:
            return "tcp";
        case SourceKind::kTls:
            return "tls";
        case SourceKind::kJournal:
            return "journal";
        case SourceKind::kLogSocket:
            return "socket";
        case SourceKind::kKernelRing:
            return "kernel";
    }
    return "";
}

std::string number(long long value) {
    return std::to_string(value);
}

bool isStream(const Source& source) {
    return source.kind == SourceKind::kTcp || source.kind == SourceKind::kTls;
}

// Where a line break cannot be part of a message.
bool endsAtLineBreak(const Source& source) {
    return isStream(source) && !source.counted;
}

std::string queueName(const Source& source) {
    const char* const mark = isStream(source) && source.counted ? "counted-" : "";
    return (source.raw ? std::string(kRawMark) : mark) + sourceName(source.kind);
}

// Many listeners share what one may have on the way in each connection, down to what is read at once.
long long streamWindow(const ReceiverConfig& config) {
    const auto streams = std::count_if(config.sources.begin(), config.sources.end(), isStream);
    const long long lines = kConnectionWindow / std::max<long long>(streams, 1);
    return kMaxConnections * std::max<long long>(lines, kFetchLimit);
}

long long queueLines(SourceKind kind) {
    switch (kind) {
        case SourceKind::kUdp:
            return kDatagramQueueLines;
        case SourceKind::kLogSocket:
            return kLogSocketQueueLines;
        case SourceKind::kTcp:
        case SourceKind::kTls:
            return static_cast<long long>(kMaxConnections) * kConnectionWindow;
        case SourceKind::kJournal:
        case SourceKind::kKernelRing:
            break;
    }
    return kConnectionWindow;
}

// A text between double quotes: there a backslash makes the next character plain, and two backticks are one, since
// one begins the name of something that is put in its place.
std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') result += '\\';
        if (c == '`') result += c;
        result += c;
    }
    return result + '"';
}

std::string renderNetworkSource(const ReceiverConfig& config, const Source& source, long long window) {
    const bool stream = isStream(source);
    const bool counted = stream && source.counted;
    std::string text = counted ? "    syslog" : "    network";
    text += std::string("(transport(\"") + sourceName(source.kind) + "\")";
    text += config.ipv6 ? " ip-protocol(6) ip(\"::\")" : " ip-protocol(4) ip(\"0.0.0.0\")";
    text += " port(" + number(source.port) + ") flags(no-parse)\n";
    text += "        log-fetch-limit(" + number(kFetchLimit) + ")";
    if (stream) {
        text += " max-connections(" + number(kMaxConnections) + ") log-iw-size(" + number(window) +
                ") so-keepalive(yes)";
    } else {
        text += " log-iw-size(" + number(queueLines(source.kind)) + ")";
        if (config.sharesUdpPorts) text += " so-reuseport(yes)";
        if (config.receiveBuffer > 0) text += " so-rcvbuf(" + number(config.receiveBuffer) + ")";
    }
    if (counted) text += " trim-large-messages(yes)";
    if (source.kind == SourceKind::kTls) {
        text += "\n        tls(key-file(" + quoted(config.keyFile) + ") cert-file(" +
                quoted(config.certificateFile) + ") peer-verify(optional-untrusted))";
    }
    return text + ");\n";
}

std::string renderDriver(const ReceiverConfig& config, const Source& source, long long streams) {
    const std::string window =
        "log-fetch-limit(" + number(kFetchLimit) + ") log-iw-size(" + number(queueLines(source.kind)) + ")";
    switch (source.kind) {
        case SourceKind::kJournal:
            return "    systemd-journal(read-old-records(no) default-facility(user) default-level(notice)\n"
                   "        " +
                   window + ");\n";
        case SourceKind::kLogSocket:
            return "    unix-dgram('" + source.path + "' perm(0666) flags(no-parse)\n        " + window + ");\n";
        case SourceKind::kKernelRing:
            return "    file('" + source.path + "' flags(no-parse)\n        " + window + ");\n";
        default:
            return renderNetworkSource(config, source, streams);
    }
}

// The sources that lead into one queue.
std::string renderSources(const ReceiverConfig& config, const std::string& queue) {
    std::string text = "source s_" + queue + " {\n";
    const long long streams = streamWindow(config);
    for (const Source& source : config.sources) {
        if (queueName(source) == queue) text += renderDriver(config, source, streams);
    }
    return text + "};\n";
}

// Something that never says anything: a destination exists as long as a path leads to it.
std::string renderSilentSource(const ReceiverConfig& config) {
    return "source s_silent { unix-dgram('" + silentSocket(config) + "'); };\n";
}

std::string renderQueue(const ReceiverConfig& config, const Source& source) {
    const std::string lines = number(queueLines(source.kind));
    if (isHeldBack(source.kind)) return "        log-fifo-size(" + lines + ")\n";
    return "        disk-buffer(reliable(no) disk-buf-size(" + number(kQueueFileBytes) + ") qout-size(" + lines +
           ")\n            mem-buf-length(" + lines + ") dir('" + config.queueFolder + "'))\n";
}

std::string renderDestination(const ReceiverConfig& config, const Source& source, int batchMilliseconds) {
    const std::string queue = queueName(source);
    const std::string name = config.name + "-" + queue;
    const char* const sender = hasPort(source.kind) ? "$HOST_FROM" : "127.0.0.1";
    const char* const length = endsAtLineBreak(source) ? "-" : "$(length $MESSAGE)";
    return "destination d_" + queue + " {\n    http(url(\"http://127.0.0.1:" + number(config.writerPort) + "/" +
           name + "\") method(\"POST\") persist-name(\"" + name + "\")\n" +
           "        headers(\"Authorization: Bearer " + config.token + "\", \"Expect:\")\n" +
           "        body(\"$UNIQID $R_UNIXTIME " + sender + " " + length + " $MESSAGE\")" +
           " delimiter(\"\\n\") body-suffix(\"\\n\")\n" + "        batch-lines(" +
           number(static_cast<long long>(kFullBatchLines)) + ") batch-bytes(" +
           number(static_cast<long long>(kFullBatchBytes)) + ") batch-timeout(" + number(batchMilliseconds) +
           ") workers(1)\n" + renderQueue(config, source) + "        time-reopen(1) timeout(120));\n};\n";
}

std::string renderPath(const Source& source, const std::string& from) {
    const std::string queue = queueName(source);
    std::string text = "log {\n    source(s_" + from + ");\n";
    if (source.kind == SourceKind::kJournal || source.kind == SourceKind::kKernelRing)
        text += "    rewrite(r_" + queue + ");\n";
    if (!endsAtLineBreak(source)) text += "    rewrite(r_nul);\n";
    text += "    destination(d_" + queue + ");\n";
    return text + (isHeldBack(source.kind) ? "    flags(flow-control);\n" : "") + "};\n";
}

// Header fields hold neither blanks nor nothing; what a program calls itself may be both.
std::string renderRewrite(const Source& source) {
    if (source.kind == SourceKind::kJournal) {
        return "rewrite r_journal {\n"
               "    set(\"<$PRI>1 $S_ISODATE - $(substr $(sanitize -i ' ' \\\"${PROGRAM:--}\\\") 0 255)"
               " $(substr $(sanitize -i ' ' \\\"${PID:--}\\\") 0 128) - - $MESSAGE\",\n"
               "        value(\"MESSAGE\"));\n};\n";
    }
    if (source.kind == SourceKind::kKernelRing) {
        return "rewrite r_kernel { subst('^<([0-9]+)>', '<$1>1 - - kernel - - - ', value(\"MESSAGE\"), "
               "type(\"pcre\"), flags(\"store-matches\")); };\n";
    }
    return {};
}

// The first source of each queue stands for all that lead into it.
std::vector<Source> queuesOf(const std::vector<Source>& sources) {
    std::vector<Source> firsts;
    std::set<std::string> seen;
    std::copy_if(sources.begin(), sources.end(), std::back_inserter(firsts),
                 [&](const Source& source) { return seen.insert(queueName(source)).second; });
    return firsts;
}

enum class Reading { kAll, kNothingHeldBack };

std::string render(const ReceiverConfig& config, Reading reading, int batchMilliseconds) {
    std::string text =
        "@version: 3.38\n"
        "# Written by ombrel-receiver from the settings; a change here is lost.\n"
        "options {\n"
        "    use-dns(no); dns-cache(no); chain-hostnames(no); stats-freq(0); mark-freq(0);\n"
        "    use-uniqid(yes); log-msg-size(" +
        number(kMaxMessageBytes) + "); threaded(yes);\n};\n";
    text += "rewrite r_nul { subst('\\x00', '#000', value(\"MESSAGE\"), type(\"pcre\"), flags(\"global\")); };\n";
    if (reading == Reading::kNothingHeldBack || !config.drains.empty()) text += renderSilentSource(config);
    const std::vector<std::string> read = destinationNames(config.sources);
    std::vector<Source> all = config.sources;
    all.insert(all.end(), config.drains.begin(), config.drains.end());
    for (const Source& first : queuesOf(all)) {
        const bool drained = std::find(read.begin(), read.end(), destinationName(first)) == read.end();
        const bool silent = drained || (reading == Reading::kNothingHeldBack && isHeldBack(first.kind));
        const std::string queue = queueName(first);
        text += renderRewrite(first);
        if (!silent) text += renderSources(config, queue);
        text += renderDestination(config, first, batchMilliseconds);
        text += renderPath(first, silent ? "silent" : queue);
    }
    return text;
}

}  // namespace

bool hasPort(SourceKind kind) noexcept {
    return kind == SourceKind::kUdp || kind == SourceKind::kTcp || kind == SourceKind::kTls;
}

bool isHeldBack(SourceKind kind) noexcept {
    return kind != SourceKind::kUdp && kind != SourceKind::kLogSocket;
}

bool isConfigurablePath(const std::string& path) noexcept {
    if (path.empty() || path.front() != '/') return false;
    return std::none_of(path.begin(), path.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

std::string renderReceiverConfig(const ReceiverConfig& config) {
    return render(config, Reading::kAll, kBatchMilliseconds);
}

std::string renderHandOverConfig(const ReceiverConfig& config) {
    return render(config, Reading::kNothingHeldBack, kLastBatchMilliseconds);
}

std::string silentSocket(const ReceiverConfig& config) {
    return config.queueFolder + "/silent";
}

std::string destinationName(const Source& source) {
    return "d_" + queueName(source);
}

std::vector<std::string> destinationNames(const std::vector<Source>& sources) {
    std::vector<std::string> names;
    for (const Source& first : queuesOf(sources))
        names.push_back(destinationName(first));
    return names;
}

}  // namespace ombrel
