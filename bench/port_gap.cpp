// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How long a port on 127.0.0.1 refuses connections, as a device sees it: sends 5,000 lines a second over one
// connection, makes another when that one ends, and tries every five milliseconds whether there is one to be had.
// Ends with its standard input. Prints the time between the last connection before the longest refusal and the
// first after it, in milliseconds.
//   port-gap PORT
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sysexits.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "linux/common/fd.h"

namespace {

using ombrel::Fd;
using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kStep{5};
constexpr int kLinesAStep = 25;
// A receiver that ends passes attempts over; the kernel would try again only after a second.
constexpr timeval kPatience{0, 20'000};

Fd connectTo(std::uint16_t port) {
    Fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    (void)::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) return {};
    const timeval endless{};
    (void)::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &endless, sizeof endless);
    return socket;
}

bool inputEnded() {
    pollfd input{0, POLLIN, 0};
    return ::poll(&input, 1, 0) != 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return EX_USAGE;
    const auto port = static_cast<std::uint16_t>(std::atoi(argv[1]));
    std::string lines;
    for (int i = 0; i < kLinesAStep; ++i)
        lines += "<13>Jan  1 00:00:00 host app: a line of some length\n";
    Fd sender;
    auto last = Clock::now();
    Clock::duration longest{};
    auto due = Clock::now();
    while (!inputEnded()) {
        std::this_thread::sleep_until(due += kStep);
        Fd probe = connectTo(port);
        if (probe) {
            const auto now = Clock::now();
            longest = std::max(longest, now - last);
            last = now;
            if (!sender) sender = std::move(probe);
        }
        char byte = 0;
        if (sender && ::recv(sender.get(), &byte, 1, MSG_DONTWAIT) == 0)
            sender.reset();  // the receiver says goodbye
        const auto size = static_cast<ssize_t>(lines.size());
        if (sender && ::send(sender.get(), lines.data(), lines.size(), MSG_NOSIGNAL) != size) sender.reset();
    }
    (void)std::printf("%.0f\n", std::chrono::duration<double, std::milli>(longest).count());
    return EX_OK;
}
