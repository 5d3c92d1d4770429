// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The two ends of a test of a port.
//   port-echo listen [--shared] PROTOCOL ADDRESS PORT...   echoes until it is ended; prints "ready" when all are
//   bound port-echo probe MILLISECONDS PROTOCOL ADDRESS PORT     0 when what is sent comes back in time, else 1
//   port-echo talk MILLISECONDS ADDRESS PORT               one TCP connection, opened at once: every line of
//   standard
//                                                          input is sent, and "same" or "lost" is printed for each
//   port-echo ping MILLISECONDS ADDRESS                    0 when an ICMP echo of IPv4 comes back in time, else 1
// PROTOCOL is tcp or udp, ADDRESS numeric. Exit codes: 0, 1 as above, 64 usage, 71 no socket.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "linux/common/fd.h"

using ombrel::Fd;

namespace {

struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;
    [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

[[noreturn]] void die(const std::string& what) {
    std::fprintf(stderr, "port-echo: %s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(71);
}

int typeOf(const std::string& protocol) {
    return protocol == "udp" ? SOCK_DGRAM : SOCK_STREAM;
}

Address resolve(const std::string& host, const std::string& port) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
        errno = EINVAL;
        die(host + " " + port);
    }
    Address address;
    std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
    address.length = found->ai_addrlen;
    ::freeaddrinfo(found);
    return address;
}

bool awaits(const Fd& fd, short events, int milliseconds) {
    pollfd one{fd.get(), events, 0};
    return ::poll(&one, 1, milliseconds) > 0;
}

Fd bound(const std::string& protocol, const std::string& host, const std::string& port, bool shared) {
    const Address address = resolve(host, port);
    Fd fd(::socket(address.storage.ss_family, typeOf(protocol) | SOCK_CLOEXEC, 0));
    const int yes = 1;
    if (shared) (void)::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes);  // bind tells
    (void)::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (address.storage.ss_family == AF_INET6)
        (void)::setsockopt(fd.get(), IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof yes);
    if (!fd || ::bind(fd.get(), address.get(), address.length) != 0) die(protocol + " " + host + " " + port);
    if (protocol == "tcp" && ::listen(fd.get(), 16) != 0) die("listen " + port);
    return fd;
}

/// Sends back what came; false at the end of a connection.
bool echo(const Fd& fd) {
    char bytes[2048];
    Address peer;
    peer.length = sizeof peer.storage;
    const ssize_t count =
        ::recvfrom(fd.get(), bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&peer.storage), &peer.length);
    if (count <= 0) return false;
    const sockaddr* to = peer.length != 0 ? peer.get() : nullptr;
    (void)::sendto(fd.get(), bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL, to,
                   peer.length);  // probe tells
    return true;
}

int listenOn(bool shared, const std::string& protocol, const std::string& host, int count, char** ports) {
    std::vector<Fd> sockets;
    sockets.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        sockets.push_back(bound(protocol, host, ports[i], shared));
    const auto listeners = protocol == "tcp" ? static_cast<std::size_t>(count) : 0;
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        std::vector<pollfd> polled;
        polled.reserve(sockets.size());
        for (const Fd& fd : sockets)
            polled.push_back({fd.get(), POLLIN, 0});
        if (::poll(polled.data(), polled.size(), -1) < 0) die("poll");
        for (std::size_t i = polled.size(); i-- > 0;) {
            if (polled[i].revents == 0) continue;
            if (i < listeners) {
                sockets.emplace_back(::accept4(sockets[i].get(), nullptr, nullptr, SOCK_CLOEXEC));
            } else if (!echo(sockets[i]) && protocol == "tcp") {
                sockets.erase(sockets.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
    }
}

Fd connected(const std::string& protocol, const std::string& host, const std::string& port, int milliseconds) {
    const Address address = resolve(host, port);
    Fd fd(::socket(address.storage.ss_family, typeOf(protocol) | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) die("socket");
    if (::connect(fd.get(), address.get(), address.length) == 0) return fd;
    int failure = errno;
    socklen_t length = sizeof failure;
    if (failure != EINPROGRESS || !awaits(fd, POLLOUT, milliseconds)) return Fd();
    if (::getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &failure, &length) != 0 || failure != 0) return Fd();
    return fd;
}

bool comesBack(const Fd& fd, const std::string& text, int milliseconds) {
    if (::send(fd.get(), text.data(), text.size(), MSG_NOSIGNAL) < 0) return false;
    std::string back(text.size(), '\0');
    return awaits(fd, POLLIN, milliseconds) && ::recv(fd.get(), back.data(), back.size(), 0) >= 0 && back == text;
}

int talk(const std::string& host, const std::string& port, int milliseconds) {
    const Fd fd = connected("tcp", host, port, milliseconds);
    if (!fd) return 1;
    for (std::string line; std::getline(std::cin, line);)
        std::cout << (comesBack(fd, line, milliseconds) ? "same" : "lost") << std::endl;
    return 0;
}

int ping(const std::string& host, int milliseconds) {
    const Address address = resolve(host, "0");
    const Fd fd(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
    if (!fd) die("raw socket");
    icmphdr request{};
    request.type = ICMP_ECHO;
    request.checksum = static_cast<std::uint16_t>(~request.type);  // RFC 1071; every other word is 0
    if (::sendto(fd.get(), &request, sizeof request, 0, address.get(), address.length) < 0) return 1;
    while (awaits(fd, POLLIN, milliseconds)) {
        unsigned char packet[128];
        const ssize_t count = ::recv(fd.get(), packet, sizeof packet, 0);
        const ssize_t header = (packet[0] & 0x0f) * 4L;  // of IPv4, in words of four bytes
        if (count > header && packet[header] == ICMP_ECHOREPLY) return 0;
    }
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    const bool shared = argc > 2 && std::strcmp(argv[2], "--shared") == 0;
    const int first = shared ? 3 : 2;
    if (command == "listen" && argc > first + 2)
        return listenOn(shared, argv[first], argv[first + 1], argc - first - 2, argv + first + 2);
    if (command == "probe" && argc == 6) {
        const Fd fd = connected(argv[3], argv[4], argv[5], std::atoi(argv[2]));
        return fd && comesBack(fd, "ping", std::atoi(argv[2])) ? 0 : 1;
    }
    if (command == "ping" && argc == 4) return ping(argv[3], std::atoi(argv[2]));
    if (command == "talk" && argc == 5) return talk(argv[3], argv[4], std::atoi(argv[2]));
    std::fputs(
        "usage: port-echo listen [--shared] PROTOCOL ADDRESS PORT... | probe MS PROTOCOL ADDRESS PORT | "
        "talk MS ADDRESS PORT | ping MS ADDRESS\n",
        stderr);
    return 64;
}
