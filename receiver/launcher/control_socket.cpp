// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/control_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>
#include <string_view>

#include "linux/common/fd.h"

namespace ombrel {

bool answersOnControlSocket(const std::string& path, std::chrono::milliseconds timeout) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket || ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return false;
    }
    constexpr std::string_view kQuestion = "STATS\n";
    if (::send(socket.get(), kQuestion.data(), kQuestion.size(), MSG_NOSIGNAL) < 0) return false;
    // The whole answer, up to the line with a single dot: a connection closed earlier is an error in its log.
    const auto until = std::chrono::steady_clock::now() + timeout;
    std::string answer;
    std::array<char, 4096> buffer{};
    while (!answer.ends_with(".\n")) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        pollfd one{socket.get(), POLLIN, 0};
        if (left.count() <= 0 || ::poll(&one, 1, static_cast<int>(left.count())) != 1) return false;
        const ssize_t got = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (got <= 0) return false;
        answer.append(buffer.data(), static_cast<size_t>(got));
    }
    return true;
}

}  // namespace ombrel
