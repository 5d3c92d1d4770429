// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/ports.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <fstream>
#include <optional>
#include <sstream>

#include "linux/common/fd.h"

namespace ombrel {

namespace {

int bindOne(int family, int type, std::uint16_t port) noexcept {
    const Fd socket(::socket(family, type | SOCK_CLOEXEC, 0));
    if (!socket) return errno;
    const int on = 1;
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return errno;
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(port);
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    const bool isSix = family == AF_INET6;
    const auto* const address =
        isSix ? reinterpret_cast<const sockaddr*>(&six) : reinterpret_cast<const sockaddr*>(&four);
    const socklen_t size = isSix ? sizeof six : sizeof four;
    if (::bind(socket.get(), address, size) != 0) return errno;
    return type == SOCK_STREAM && ::listen(socket.get(), 1) != 0 ? errno : 0;
}

}  // namespace

bool canUseIpv6() noexcept {
    return bindOne(AF_INET6, SOCK_DGRAM, 0) == 0;
}

int tryToBind(const Listener& listener, bool ipv6) noexcept {
    const int type = listener.transport == Transport::kUdp ? SOCK_DGRAM : SOCK_STREAM;
    return bindOne(ipv6 ? AF_INET6 : AF_INET, type, listener.port);
}

namespace {

// "sl local_address rem_address st tx_queue:rx_queue": numbers are hexadecimal, the port is behind the last
// colon of the local address.
template <typename Row>
void forEachOfPort(const std::string& table, std::uint16_t port, const Row& row) {
    const auto hexadecimalAfterColon = [](const std::string& text) {
        unsigned long value = 0;
        const char* const digits = text.c_str() + (text.rfind(':') + 1);  // from the start without one
        const bool read = std::from_chars(digits, text.c_str() + text.size(), value, 16).ec == std::errc();
        return read ? std::optional(value) : std::nullopt;
    };
    std::istringstream lines(table);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string slot;
        std::string local;
        std::string peer;
        std::string state;
        std::string queues;
        if (!(fields >> slot >> local >> peer >> state) || hexadecimalAfterColon(local) != port) continue;
        fields >> queues;
        row(state, hexadecimalAfterColon(queues).value_or(0));
    }
}

std::string socketTable(Transport transport, const char* family) {
    std::ifstream file(std::string("/proc/net/") + (transport == Transport::kUdp ? "udp" : "tcp") + family);
    std::stringstream table;
    table << file.rdbuf();
    return table.str();
}

}  // namespace

bool tableHasPort(const std::string& table, bool udp, std::uint16_t port) {
    const std::string wanted = udp ? "07" : "0A";  // UDP without a peer; TCP in LISTEN
    bool found = false;
    forEachOfPort(table, port, [&](const std::string& state, unsigned long) { found |= state == wanted; });
    return found;
}

unsigned long waitingInTable(const std::string& table, std::uint16_t port) {
    unsigned long sum = 0;
    forEachOfPort(table, port, [&](const std::string&, unsigned long waiting) { sum += waiting; });
    return sum;
}

unsigned long waitingInKernel(const Listener& listener) {
    unsigned long sum = 0;
    for (const char* const family : {"", "6"})
        sum += waitingInTable(socketTable(listener.transport, family), listener.port);
    return sum;
}

bool isBound(const Listener& listener) {
    const bool udp = listener.transport == Transport::kUdp;
    for (const char* const family : {"", "6"}) {
        if (tableHasPort(socketTable(listener.transport, family), udp, listener.port)) return true;
    }
    return false;
}

long long largestReceiveBuffer() {
    std::ifstream file("/proc/sys/net/core/rmem_max");
    long long bytes = 0;
    return file >> bytes ? bytes : 0;
}

}  // namespace ombrel
