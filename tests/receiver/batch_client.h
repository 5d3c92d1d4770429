// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Posts bodies as a receiver does.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "linux/common/fd.h"

namespace ombrel {

class BatchClient {
public:
    BatchClient(std::uint16_t port, std::string token) : token_(std::move(token)) {
        socket_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    void send(const std::string& text) const {
        EXPECT_EQ(::send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    void post(const std::string& body, const std::string& receiver = "bsd-tcp") const {
        send("POST /" + receiver + " HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + token_ +
             "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    /// The status line's code, "closed" when the connection ended without an answer, "waiting" when nothing came.
    [[nodiscard]] std::string answer(int timeoutMs = 10'000) const {
        std::string text;
        while (text.find("\r\n\r\n") == std::string::npos) {
            pollfd one{socket_.get(), POLLIN, 0};
            if (::poll(&one, 1, timeoutMs) != 1) return "waiting";
            char buffer[4096];
            const ssize_t got = ::recv(socket_.get(), buffer, sizeof buffer, 0);
            if (got <= 0) return "closed";
            text.append(buffer, static_cast<size_t>(got));
        }
        return text.substr(9, 3);
    }

private:
    std::string token_;
    Fd socket_;
};

/// A line of a batch; `number` is its receipt id.
inline std::string batchLine(std::uint64_t number, const std::string& text) {
    char id[32];
    (void)std::snprintf(id, sizeof id, "0000000a@%016llx", static_cast<unsigned long long>(number));
    return std::string(id) + " 1784548800 192.0.2.1 " + std::to_string(text.size()) + " " + text + "\n";
}

}  // namespace ombrel
