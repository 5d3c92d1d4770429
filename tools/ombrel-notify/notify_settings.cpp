// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel-notify/notify_settings.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>

#include "linux/common/error_record.h"

namespace ombrel {

namespace {

constexpr int kLongestValue = 4095;
/// A PiB; what is larger is a slip of the hand.
constexpr long long kMostMib = 1LL << 30;

class Keys {
public:
    explicit Keys(const std::string& path) : path_(path) {}

    /// Nothing when the key is missing, or the file cannot be read.
    std::optional<std::string> text(const char* key) {
        std::array<char, kLongestValue + 1> buffer{};
        if (VLIBCFileGetKeyValue(path_.c_str(), key, buffer.data(), kLongestValue, 0) <= 0) return std::nullopt;
        return buffer.data();
    }
    /// `without` when the key is missing; `ifWrong` when it is no number up to `most`, which is then a problem.
    long long number(const char* key, long long most, long long without, long long ifWrong) {
        const auto digits = text(key);
        if (!digits) return without;
        long long value = 0;
        const char* const end = digits->data() + digits->size();
        const auto [stop, error] = std::from_chars(digits->data(), end, value);
        if (error == std::errc() && stop == end && value >= 0 && value <= most) return value;
        wrong(key, *digits);
        return ifWrong;
    }
    void wrong(const char* key, const std::string& value) {
        if (problem_.empty()) problem_ = std::string(key) + "=\"" + value + "\" in " + path_ + " makes no sense";
    }
    void missing(const char* key) {
        if (problem_.empty()) problem_ = std::string(key) + " is missing in " + path_;
    }
    [[nodiscard]] const std::string& problem() const { return problem_; }

private:
    const std::string& path_;
    std::string problem_;
};

struct ReceiverKeys {
    const char* port;
    const char* transport;
    const char* tls;
    bool isOptional;  ///< without its keys it takes datagrams on port 514
};

constexpr ReceiverKeys kReceivers[] = {
    {"server_port", "server_trans", "server_ssl", false},
    {"server_ietf_port", "server_ietf_trans", "server_ietf_ssl", true},
};

void readReceiver(Keys& keys, const ReceiverKeys& receiver, std::set<std::uint16_t>& ports) {
    constexpr long long kDefaultPort = 514;
    const auto transport = keys.text(receiver.transport);
    if (!transport && !receiver.isOptional) keys.missing(receiver.transport);
    const bool isUdp = transport ? *transport == "udp" : receiver.isOptional;
    if (!isUdp || keys.text(receiver.tls).value_or("") == "1") return;
    const long long port = keys.number(receiver.port, 65535, receiver.isOptional ? kDefaultPort : -1, 0);
    if (port < 0) keys.missing(receiver.port);
    if (port > 0) ports.insert(static_cast<std::uint16_t>(port));
}

}  // namespace

NotifySettings readNotifySettings(const std::string& path) {
    NotifySettings settings;
    Keys keys(path);
    VLIBCErrSetEx(0, "", 0);
    const auto destination = keys.text("arch_dest");
    const int code = VLIBCErrGet();
    if (!destination && code > kErrorFromErrno && code < kErrorFromSqlite) {
        settings.problem = path + ": " + std::strerror(code - kErrorFromErrno);
        return settings;
    }
    if (!destination) {
        keys.missing("arch_dest");
    } else if (!destination->starts_with('/')) {
        keys.wrong("arch_dest", *destination);
    } else {
        settings.destination = *destination;
    }
    for (const ReceiverKeys& receiver : kReceivers)
        readReceiver(keys, receiver, settings.udpPorts);
    settings.freeMib = keys.number("notify_free_mib", kMostMib, settings.freeMib, settings.freeMib);
    settings.problem = keys.problem();
    return settings;
}

}  // namespace ombrel
