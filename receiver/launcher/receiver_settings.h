// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// From settings to what a receiver does. The token and what the machine allows are not in it yet.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "receiver/launcher/receiver_config.h"

namespace ombrel {

/// The files that people change.
struct SettingsPlaces {
    std::string settings;
    std::string rules;
    std::string enabledJobs{};
};

/// "bsd", "ietf", "local" or "custrule".
bool isReceiverName(std::string_view name) noexcept;

/// Of the receiver of that name:
/// - bsd: RFC 3164 messages on server_port, by server_trans ("udp" or TCP) or, with server_ssl, TLS;
/// - ietf: RFC 5424 messages on server_ietf_port, by server_ietf_trans or, with server_ietf_ssl, TLS;
/// - local: what this machine logs itself;
/// - custrule: what the enabled receiving rules say, with the key and certificate of the settings for TLS; rules
///   that make no sense are left out.
/// Nothing when the settings make no sense or the rules cannot be read; `error` then names key and value.
std::optional<ReceiverConfig> receiverConfig(std::string_view name, const SettingsPlaces& places,
                                             std::string& error);

/// Where the programs of this machine log.
struct LocalPlaces {
    bool journal = false;  ///< systemd runs here and collects all of it
    std::string logSocket = "/dev/log";
    std::string kernelRing = "/proc/kmsg";
};

/// Without systemd: the socket of syslog(3), and the kernel's messages, which go without a word when this process
/// may not read them; the caller is told in `trouble`.
ReceiverConfig localReceiverConfig(const LocalPlaces& places, std::string& trouble);

}  // namespace ombrel
