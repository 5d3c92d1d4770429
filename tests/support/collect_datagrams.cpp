// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Binds a datagram socket in the file system, such as /dev/log in a private root, and prints what comes, one
// datagram a line, until it is ended by a signal.
//   collect-datagrams SOCKET
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (argc != 2 || strlen(argv[1]) >= sizeof address.sun_path) {
        (void)fputs("usage: collect-datagrams SOCKET\n", stderr);
        return EX_USAGE;
    }
    memcpy(address.sun_path, argv[1], strlen(argv[1]) + 1);
    const int receiver = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    umask(0);  // whoever has something to say may
    if (receiver < 0 || bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        perror("collect-datagrams");
        return EX_OSERR;
    }
    char text[65536];
    for (;;) {
        const ssize_t length = recv(receiver, text, sizeof text - 1, 0);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return EX_OSERR;
        text[length] = '\n';
        if (write(STDOUT_FILENO, text, static_cast<size_t>(length) + 1) != length + 1) return EX_IOERR;
    }
}
