// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/http_endpoint.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <string>
#include <thread>

#include "tests/receiver/batch_client.h"

namespace ombrel {
namespace {

/// An endpoint on a thread of its own that answers every batch.
class AnsweringEndpoint final : public BodyHandler {
public:
    AnsweringEndpoint() {
        EXPECT_TRUE(endpoint_.start(0, "secret", 1));
        thread_ = std::thread([this] { drive(); });
    }
    AnsweringEndpoint(const AnsweringEndpoint&) = delete;
    AnsweringEndpoint& operator=(const AnsweringEndpoint&) = delete;
    ~AnsweringEndpoint() override {
        ending_ = true;
        const BatchClient waker(endpoint_.port(), "");
        thread_.join();
    }

    [[nodiscard]] std::uint16_t port() const { return endpoint_.port(); }
    void bodyArrived(BodyId id, const std::string& /*receiver*/, std::string /*body*/) override {
        endpoint_.answer(id);
    }
    void refused(const std::string& /*reason*/) override {}

private:
    void drive() {
        while (!ending_) {
            pollfd one{endpoint_.fd(), POLLIN, 0};
            (void)::poll(&one, 1, endpoint_.nextTimeoutMs().value_or(-1));
            endpoint_.run();
        }
    }

    std::atomic<bool> ending_ = false;
    HttpEndpoint endpoint_{*this};
    std::thread thread_;
};

TEST(HttpEndpointTest, CutsOffWhoeverShowsNoTokenAndKeepsTheReceivers) {
    const AnsweringEndpoint endpoint;
    const BatchClient receiver(endpoint.port(), "secret");
    receiver.post("a");
    EXPECT_EQ(receiver.answer(), "200");
    const BatchClient silent(endpoint.port(), "");
    const BatchClient slow(endpoint.port(), "");
    slow.send("POST /bsd-tcp HTTP/1.1\r\nHost: x\r\n");
    EXPECT_EQ(silent.answer(), "closed");
    EXPECT_EQ(slow.answer(), "closed");
    receiver.post("b");
    EXPECT_EQ(receiver.answer(), "200") << "it was idle for as long as the others";
}

TEST(HttpEndpointTest, RefusesTheWrongToken) {
    const AnsweringEndpoint endpoint;
    const BatchClient stranger(endpoint.port(), "guess");
    stranger.post("a");
    EXPECT_EQ(stranger.answer(), "closed");
}

}  // namespace
}  // namespace ombrel
