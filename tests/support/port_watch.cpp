// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Connects to a TCP port of this machine again and again, five milliseconds apart, until its standard input ends, and
// prints for how long connections were refused: "refused MS LONGEST TIMES" (milliseconds in all, of the longest
// stretch, and how many stretches there were).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sysexits.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "linux/common/fd.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

bool isRefused(int port) {
    const ombrel::Fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    // A reset instead of a goodbye, or each probe would hold a port for a minute.
    const linger hard{1, 0};
    (void)::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0;
}

/// Whether standard input has ended, after five milliseconds.
bool isOver() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    char byte = 0;
    return ::poll(&input, 1, 5) > 0 && ::read(STDIN_FILENO, &byte, 1) <= 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || std::atoi(argv[1]) < 1) {
        (void)std::fputs("usage: port-watch PORT <INPUT\n", stderr);
        return EX_USAGE;
    }
    const int port = std::atoi(argv[1]);
    std::optional<Clock::time_point> since;
    double sum = 0;
    double longest = 0;
    int times = 0;
    const auto close = [&] {
        if (!since) return;
        const double length = Milliseconds(Clock::now() - *since).count();
        sum += length;
        longest = std::max(longest, length);
        ++times;
        since.reset();
    };
    while (!isOver()) {
        if (!isRefused(port)) {
            close();
        } else if (!since) {
            since = Clock::now();
        }
    }
    close();
    return std::printf("refused %.0f %.0f %d\n", sum, longest, times) > 0 ? EX_OK : EX_IOERR;
}
