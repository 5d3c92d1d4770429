// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/writer_prompt.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace ombrel {

WriterPrompt WriterPrompt::of(std::uint16_t port, const std::string& receiver, const std::string& token) {
    return {port, "POST /" + receiver + " HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + token +
                      "\r\nContent-Length: 0\r\n\r\n"};
}

bool WriterPrompt::ask() {
    if (socket_) {
        pollfd one{socket_.get(), POLLIN, 0};
        if (::poll(&one, 1, 0) == 0) return true;
    }
    socket_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port_);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        socket_.reset();
        return false;
    }
    // What becomes of it is seen at the next time.
    (void)::send(socket_.get(), request_.data(), request_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return true;
}

}  // namespace ombrel
