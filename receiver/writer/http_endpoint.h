// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The port on which the receivers hand their batches over: POST /RECEIVER with the token. A body is answered
// by 200 or by closing the connection, and by nothing else: a receiver throws a batch away after a few 4xx or
// 5xx answers, but never after a lost connection. One thread; driven from outside through fd().
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ombrel {

/// Names one body until it is answered or dropped.
using BodyId = std::uint64_t;

class BodyHandler {
public:
    virtual ~BodyHandler() = default;
    /// A whole body of a receiver that knows the token. Answer or drop it later, or right away.
    virtual void bodyArrived(BodyId id, const std::string& receiver, std::string body) = 0;
    /// Something came that is no batch of ours, and the connection was closed.
    virtual void refused(const std::string& reason) = 0;
};

class HttpEndpoint {
public:
    explicit HttpEndpoint(BodyHandler& handler);
    ~HttpEndpoint();
    HttpEndpoint(const HttpEndpoint&) = delete;
    HttpEndpoint& operator=(const HttpEndpoint&) = delete;

    /// Listens on 127.0.0.1; port 0 takes a free one. Whoever has not shown the token within `strangerSeconds`
    /// is cut off: any local user can connect, and there is room for few. False, with errno set, when it cannot.
    bool start(std::uint16_t port, const std::string& token, unsigned strangerSeconds = 10);
    [[nodiscard]] std::uint16_t port() const noexcept;

    /// Readable when run() has something to do; also after nextTimeoutMs() milliseconds.
    [[nodiscard]] int fd() const noexcept;
    [[nodiscard]] std::optional<int> nextTimeoutMs() const;
    void run();

    /// 200. The answer goes out with the next run().
    void answer(BodyId id);
    /// Closes the connection without an answer.
    void drop(BodyId id);

    /// Takes no new connection; those that are open go on.
    void stopListening();
    /// Whether an answer has still to go out.
    [[nodiscard]] bool hasUnsentAnswers() const noexcept;

    /// Larger bodies are refused.
    static constexpr std::uint64_t kMaxBody = 64U << 20;

    struct Impl;  // seen by the callbacks of the HTTP library

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace ombrel
