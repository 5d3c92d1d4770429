// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The configuration of a receiver's own syslog-ng. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ombrel {

enum class Transport { kUdp, kTcp, kTls };

struct Listener {
    Transport transport = Transport::kUdp;
    std::uint16_t port = 0;
};

struct ReceiverConfig {
    std::string name;  ///< lower-case letters and digits; batches are posted to /NAME-TRANSPORT
    std::vector<Listener> listeners;
    std::string keyFile;  ///< for kTls
    std::string certificateFile;
    bool ipv6 = true;              ///< one socket takes both kinds of addresses
    long long receiveBuffer = 0;   ///< of a UDP socket, bytes; 0 leaves the system's
    std::uint16_t writerPort = 0;  ///< of the log writer, on 127.0.0.1
    std::string token;
    std::string queueFolder;  ///< where lines lie that were not handed over when the receiver ended
};

/// Whether a path can stand in a configuration: absolute, and without any character that could end the text
/// it stands in.
bool isConfigurablePath(const std::string& path) noexcept;

/// The whole text. The paths must be configurable, the token hexadecimal.
std::string renderReceiverConfig(const ReceiverConfig& config);

/// For a receiver that is about to end: the same destinations, which keep their queues through a reload, but
/// nothing is read from streams any more. Datagrams still are, since what is left of them goes into a file.
std::string renderHandOverConfig(const ReceiverConfig& config);

/// The destination of a listener's lines, as syslog-ng's statistics name it.
std::string destinationName(const Listener& listener);

}  // namespace ombrel
