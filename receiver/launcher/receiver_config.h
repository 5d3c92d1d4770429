// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The configuration of a receiver's own syslog-ng. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ombrel {

enum class SourceKind {
    kUdp,
    kTcp,
    kTls,
    kJournal,     ///< what systemd's journal enters from now on
    kLogSocket,   ///< where syslog(3) of this machine's programs sends, /dev/log
    kKernelRing,  ///< the kernel's own messages, /proc/kmsg: what is read once is gone from there
};

struct Source {
    SourceKind kind = SourceKind::kUdp;
    std::uint16_t port = 0;  ///< on the network
    std::string path{};      ///< of this machine
    bool counted = false;    ///< over TCP and TLS: RFC 6587 section 3.4.1 instead of lines
    bool raw = false;        ///< what comes is all message, whatever it looks like
    // For those who read what is wrong with it:
    std::string portKey{};  ///< the key that says the port
    std::string rule{};     ///< the receiving rule it belongs to
};

/// Whether it comes over the network.
bool hasPort(SourceKind kind) noexcept;
/// Whether who sends is made to wait when the queue is full: the others go on into a file. Programs of this
/// machine are among those, since waiting for a log would stop all of them.
bool isHeldBack(SourceKind kind) noexcept;

struct ReceiverConfig {
    std::string name;               ///< lower-case letters and digits; batches are posted under NAME-QUEUE
    std::vector<Source> sources{};  ///< those that differ in nothing but the port share a queue
    bool needsAll = true;           ///< ends where it cannot have a source; otherwise goes without
    bool sharesUdpPorts = true;     ///< with another receiver, whose messages are taken in the same way
    std::string keyFile{};          ///< for kTls
    std::string certificateFile{};
    std::vector<std::string> remarks{};  ///< a line for each source it goes without, or takes otherwise than meant
    bool ipv6 = true;                    ///< one socket takes both kinds of addresses
    long long receiveBuffer = 0;         ///< of a UDP socket, bytes; 0 leaves the system's
    std::uint16_t writerPort = 0;        ///< of the log writer, on 127.0.0.1
    std::string token{};
    std::string queueFolder{};     ///< where lines lie that were not handed over when the receiver ended
    std::vector<Source> drains{};  ///< what lines lie of there though nothing listens for more of them
};

/// Whether a path can stand in a configuration: absolute and without control characters. What means something else
/// there, such as a quote, is escaped.
bool isConfigurablePath(const std::string& path) noexcept;

/// The whole text. The paths must be configurable, the token hexadecimal.
std::string renderReceiverConfig(const ReceiverConfig& config);

/// For a receiver that is about to end: the same destinations, which keep their queues through a reload but wait
/// for no batch to fill, and nothing is read any more from what is held back. The rest still is, since what is
/// left of it goes into a file.
std::string renderHandOverConfig(const ReceiverConfig& config);

/// The socket in the queue folder from which such a configuration reads instead; nobody writes to it, and
/// syslog-ng leaves it behind.
std::string silentSocket(const ReceiverConfig& config);

/// The destination of a source's lines, as syslog-ng's statistics name it.
std::string destinationName(const Source& source);

/// The destinations that a receiver's sources need, each once, in the order of the sources.
std::vector<std::string> destinationNames(const std::vector<Source>& sources);

}  // namespace ombrel
