// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "linux/common/try_bind.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>

#include "linux/common/fd.h"

namespace ombrel {

int tryToBind(int family, int type, std::uint16_t port) noexcept {
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

}  // namespace ombrel
