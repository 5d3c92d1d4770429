// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Nothing is parsed here: messages travel as they came, in the frame of a batch, and the log writer has the
// one parser for them. What is in the frame and why:
//
// - flags(no-parse): MESSAGE is the text as it came. Over TCP it ends at a line break or a NUL, over UDP with
//   the datagram. So it is framed by a line break over TCP, by its length over UDP; counting costs.
// - HOST_FROM is the sender's address in text, since no names are asked for.
// - The body of a request must not hold a NUL, since libcurl ends it there: those of a datagram become #000.
// - UDP has a destination of its own, so that a flood of datagrams, which may be dropped, does not stand in
//   the same queue as the lines of TCP, which are held back in the connections instead.
// - batch-timeout is short: it is the log writer that waits before it commits.
// - Datagrams cannot be held back, so what their queue in memory cannot take goes into a file. Lines of TCP wait
//   in their connections instead: a queue file would take them from there as fast as they come and cost more
//   than storing them.
// - timeout is long: an answer comes after the commit, and a disk may be slow.
#include "receiver/launcher/receiver_config.h"

#include <string_view>

#include "receiver/message/batch_frame.h"

namespace ombrel {

namespace {

constexpr int kMaxMessageBytes = 128 << 10;
constexpr int kMaxConnections = 100;
// Lines a connection may have on the way: two full batches, so that the next fills while one is committed.
constexpr int kConnectionWindow = 2 * static_cast<int>(kFullBatchLines);
constexpr int kUdpQueueLines = 300'000;
constexpr long long kQueueFileBytes = 1LL << 30;
constexpr int kFetchLimit = 1000;

const char* transportName(Transport transport) {
    switch (transport) {
        case Transport::kUdp:
            return "udp";
        case Transport::kTcp:
            return "tcp";
        case Transport::kTls:
            return "tls";
    }
    return "";
}

std::string number(long long value) {
    return std::to_string(value);
}

std::string renderSource(const ReceiverConfig& config, const Listener& listener) {
    const std::string transport = transportName(listener.transport);
    std::string text = "source s_" + transport + " {\n    network(transport(\"" + transport + "\")";
    text += config.ipv6 ? " ip-protocol(6) ip(\"::\")" : " ip-protocol(4) ip(\"0.0.0.0\")";
    text += " port(" + number(listener.port) + ") flags(no-parse)\n";
    text += "        log-fetch-limit(" + number(kFetchLimit) + ")";
    if (listener.transport == Transport::kUdp) {
        text += " log-iw-size(" + number(kUdpQueueLines) + ")";
        if (config.receiveBuffer > 0) text += " so-rcvbuf(" + number(config.receiveBuffer) + ")";
    } else {
        text += " max-connections(" + number(kMaxConnections) + ") log-iw-size(" +
                number(static_cast<long long>(kMaxConnections) * kConnectionWindow) + ") so-keepalive(yes)";
    }
    if (listener.transport == Transport::kTls) {
        text += "\n        tls(key-file('" + config.keyFile + "') cert-file('" + config.certificateFile +
                "') peer-verify(optional-untrusted))";
    }
    return text + ");\n};\n";
}

// Something that never says anything: a destination exists as long as a path leads to it.
std::string renderSilentSource(const ReceiverConfig& config, const Listener& listener) {
    return std::string("source s_") + transportName(listener.transport) + " { unix-dgram('" + config.queueFolder +
           "/silent'); };\n";
}

std::string renderQueue(const ReceiverConfig& config, const Listener& listener) {
    const long long window = static_cast<long long>(kMaxConnections) * kConnectionWindow;
    if (listener.transport != Transport::kUdp) return "        log-fifo-size(" + number(window) + ")\n";
    return "        disk-buffer(reliable(no) disk-buf-size(" + number(kQueueFileBytes) + ") qout-size(" +
           number(kUdpQueueLines) + ")\n            mem-buf-length(" + number(kUdpQueueLines) + ") dir('" +
           config.queueFolder + "'))\n";
}

std::string renderDestination(const ReceiverConfig& config, const Listener& listener) {
    const std::string transport = transportName(listener.transport);
    const std::string name = config.name + "-" + transport;
    const char* const length = listener.transport == Transport::kUdp ? "$(length $MESSAGE)" : "-";
    return "destination d_" + transport + " {\n    http(url(\"http://127.0.0.1:" + number(config.writerPort) +
           "/" + name + "\") method(\"POST\") persist-name(\"" + name + "\")\n" +
           "        headers(\"Authorization: Bearer " + config.token + "\", \"Expect:\")\n" +
           "        body(\"$UNIQID $R_UNIXTIME $HOST_FROM " + length + " $MESSAGE\")" +
           " delimiter(\"\\n\") body-suffix(\"\\n\")\n" + "        batch-lines(" +
           number(static_cast<long long>(kFullBatchLines)) + ") batch-bytes(" +
           number(static_cast<long long>(kFullBatchBytes)) + ") batch-timeout(100) workers(1)\n" +
           renderQueue(config, listener) + "        time-reopen(1) timeout(120));\n};\n";
}

std::string renderPath(const Listener& listener) {
    const std::string transport = transportName(listener.transport);
    const bool udp = listener.transport == Transport::kUdp;
    return "log {\n    source(s_" + transport + ");\n" + (udp ? "    rewrite(r_nul);\n" : "") +
           "    destination(d_" + transport + ");\n" + (udp ? "" : "    flags(flow-control);\n") + "};\n";
}

using SourceRenderer = std::string (*)(const ReceiverConfig&, const Listener&);

std::string render(const ReceiverConfig& config, SourceRenderer source) {
    std::string text =
        "@version: 3.38\n"
        "# Written by ombrel-receiver from the settings; a change here is lost.\n"
        "options {\n"
        "    use-dns(no); dns-cache(no); chain-hostnames(no); stats-freq(0); mark-freq(0);\n"
        "    use-uniqid(yes); log-msg-size(" +
        number(kMaxMessageBytes) + "); threaded(yes);\n};\n";
    text += "rewrite r_nul { subst('\\x00', '#000', value(\"MESSAGE\"), type(\"pcre\"), flags(\"global\")); };\n";
    for (const Listener& listener : config.listeners) {
        text += source(config, listener);
        text += renderDestination(config, listener);
        text += renderPath(listener);
    }
    return text;
}

}  // namespace

bool isConfigurablePath(const std::string& path) noexcept {
    if (path.empty() || path.front() != '/') return false;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f || std::string_view("'\"\\`").find(c) != std::string_view::npos)
            return false;
    }
    return true;
}

std::string renderReceiverConfig(const ReceiverConfig& config) {
    return render(config, renderSource);
}

std::string renderHandOverConfig(const ReceiverConfig& config) {
    return render(config, [](const ReceiverConfig& own, const Listener& listener) {
        return listener.transport == Transport::kUdp ? renderSource(own, listener)
                                                     : renderSilentSource(own, listener);
    });
}

std::string destinationName(const Listener& listener) {
    return std::string("d_") + transportName(listener.transport);
}

}  // namespace ombrel
