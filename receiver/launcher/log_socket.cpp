// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/log_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "linux/common/fd.h"

namespace ombrel {

LogSocket lookAtLogSocket(const std::string& path) noexcept {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return errno == ENOENT ? LogSocket::kFree : LogSocket::kOther;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    // A link may lead to the socket of another program.
    const bool link = S_ISLNK(status.st_mode);
    if ((!link && !S_ISSOCK(status.st_mode)) || path.size() >= sizeof address.sun_path) return LogSocket::kOther;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) return LogSocket::kOther;
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return LogSocket::kTaken;
    // EPROTOTYPE: of another type, but somebody's.
    if (errno != ECONNREFUSED) return errno == EPROTOTYPE ? LogSocket::kTaken : LogSocket::kOther;
    return link ? LogSocket::kOther : LogSocket::kStale;
}

void removeStaleLogSocket(const std::string& path) noexcept {
    if (lookAtLogSocket(path) == LogSocket::kStale) (void)::unlink(path.c_str());  // syslog-ng would say so
}

}  // namespace ombrel
