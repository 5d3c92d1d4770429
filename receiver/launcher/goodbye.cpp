// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/goodbye.h"

#include <linux/filter.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "linux/common/fd.h"
#include "linux/common/folder_stream.h"

namespace ombrel {

namespace {

int option(const Fd& socket, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    return ::getsockopt(socket.get(), SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

bool isStreamOn(const Fd& socket, const std::set<std::uint16_t>& ports) {
    if (option(socket, SO_TYPE) != SOCK_STREAM) return false;
    sockaddr_in6 address{};  // the port has the same place in an address of IPv4
    socklen_t size = sizeof address;
    if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return false;
    const bool isInternet = address.sin6_family == AF_INET || address.sin6_family == AF_INET6;
    return isInternet && ports.contains(ntohs(address.sin6_port));
}

// Closed it would wake its owner, who would ask it for connections again and again. Only what begins a connection
// is passed over (RFC 9293 section 3.1: the flags are in the 14th byte of the header): a sender whose attempt has
// been answered takes its connection for made, and would be alone in it with what it writes.
void passOverAttempts(const Fd& listener) {
    constexpr std::uint32_t kFlags = 13;
    constexpr std::uint32_t kSyn = 0x02;
    constexpr std::uint32_t kAck = 0x10;
    constexpr std::uint32_t kAll = 0xffffffff;
    std::array<sock_filter, 5> attempts{{BPF_STMT(BPF_LD | BPF_B | BPF_ABS, kFlags),
                                         BPF_STMT(BPF_ALU | BPF_AND | BPF_K, kSyn | kAck),
                                         BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kSyn, 0, 1),
                                         BPF_STMT(BPF_RET | BPF_K, 0), BPF_STMT(BPF_RET | BPF_K, kAll)}};
    const sock_fprog program{attempts.size(), attempts.data()};
    (void)::setsockopt(listener.get(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

// Whether it is a connection.
bool sayGoodbyeOn(const Fd& socket) {
    if (option(socket, SO_ACCEPTCONN) == 1) {
        passOverAttempts(socket);
        return false;
    }
    (void)::shutdown(socket.get(), SHUT_WR);  // it may have ended meanwhile
    return true;
}

}  // namespace

// One after the other: of thousands of sockets this process may not hold a copy at the same time.
int sayGoodbye(const Child& process, const std::set<std::uint16_t>& ports) {
    int connections = 0;
    const FolderStream folder(::opendir(("/proc/" + std::to_string(process.pid()) + "/fd").c_str()));
    if (!folder) return connections;
    while (const dirent* const entry = ::readdir(folder.get())) {
        if (entry->d_name[0] == '.') continue;
        const long number = std::strtol(entry->d_name, nullptr, 10);
        const Fd copy(static_cast<int>(::syscall(SYS_pidfd_getfd, process.handle(), number, 0)));
        if (copy && isStreamOn(copy, ports) && sayGoodbyeOn(copy)) ++connections;
    }
    return connections;
}

}  // namespace ombrel
