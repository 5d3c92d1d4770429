// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// What a sender sees of a receiver that is about to end. The receiver is a program that got the sockets.
#include "receiver/launcher/goodbye.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux/common/fd.h"

namespace ombrel {
namespace {

class Goodbye : public ::testing::Test {
protected:
    void SetUp() override {
        listener_.reset(::socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(::listen(listener_.get(), 10), 0);
        socklen_t size = sizeof address_;
        ASSERT_EQ(::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address_), &size), 0);
        sender_ = newSender();
        ASSERT_EQ(::connect(sender_.get(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_), 0);
        accepted_.reset(::accept(listener_.get(), nullptr, nullptr));
        ASSERT_TRUE(accepted_);
        auto child = Child::start({"/bin/sleep", "600"});
        ASSERT_TRUE(child);
        receiver_.emplace(std::move(*child));
    }
    static Fd newSender() { return Fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)); }
    [[nodiscard]] std::uint16_t port() const { return ntohs(address_.sin_port); }

    /// What can be read within 10 s; "<nothing>" when there is nothing by then.
    static std::string read(const Fd& socket, int milliseconds = 10'000) {
        pollfd one{socket.get(), POLLIN, 0};
        if (::poll(&one, 1, milliseconds) != 1) return "<nothing>";
        std::array<char, 64> text{};
        const ssize_t got = ::recv(socket.get(), text.data(), text.size(), MSG_DONTWAIT);
        return got < 0 ? "<error>" : std::string(text.data(), static_cast<std::size_t>(got));
    }

    Fd listener_;
    sockaddr_in address_{};
    Fd sender_;
    Fd accepted_;
    std::optional<Child> receiver_;
};

TEST_F(Goodbye, IsSeenByTheSenderWhileWhatItHadSentIsRead) {
    ASSERT_EQ(::send(sender_.get(), "before", 6, 0), 6);
    EXPECT_EQ(sayGoodbye(*receiver_, {port()}), 1);
    EXPECT_EQ(read(sender_), "");  // the end
    ASSERT_EQ(::send(sender_.get(), " after", 6, MSG_NOSIGNAL), 6);
    sender_.reset();
    std::string all;
    for (std::string part; !(part = read(accepted_)).empty() && all.size() < 100;)
        all += part;
    EXPECT_EQ(all, "before after");
}

TEST_F(Goodbye, PassesOverNewConnectionsAndWakesNobody) {
    EXPECT_EQ(sayGoodbye(*receiver_, {port()}), 1);
    const Fd late = newSender();
    ASSERT_EQ(::fcntl(late.get(), F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(::connect(late.get(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_), -1);
    EXPECT_EQ(errno, EINPROGRESS);
    std::array<pollfd, 2> both{{{late.get(), POLLOUT, 0}, {listener_.get(), POLLIN, 0}}};
    EXPECT_EQ(::poll(both.data(), both.size(), 100), 0) << "refused, or taken, or the listener is woken";
}

// With this option the listener sees the end of the handshake only with the first bytes, here after the goodbye.
TEST_F(Goodbye, LetsAConnectionBeMadeThatHadBegun) {
    const int seconds = 30;
    ASSERT_EQ(::setsockopt(listener_.get(), IPPROTO_TCP, TCP_DEFER_ACCEPT, &seconds, sizeof seconds), 0);
    const Fd begun = newSender();
    ASSERT_EQ(::connect(begun.get(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_), 0);
    EXPECT_EQ(sayGoodbye(*receiver_, {port()}), 1);
    ASSERT_EQ(::send(begun.get(), "begun", 5, 0), 5);
    pollfd one{listener_.get(), POLLIN, 0};
    ASSERT_EQ(::poll(&one, 1, 10'000), 1) << "the sender is alone in this connection";
    const Fd made(::accept(listener_.get(), nullptr, nullptr));
    EXPECT_EQ(read(made), "begun");
}

TEST_F(Goodbye, MayBeSaidAgain) {
    EXPECT_EQ(sayGoodbye(*receiver_, {port()}), 1);
    EXPECT_EQ(sayGoodbye(*receiver_, {port()}), 1);
    EXPECT_EQ(read(sender_), "");
}

TEST_F(Goodbye, IsSaidToMoreThanThisProcessMayHaveOpen) {
    constexpr int kMore = 40;
    const int lowest = ::dup(accepted_.get());
    ASSERT_GE(lowest, 0);
    {
        std::vector<Fd> copies;
        copies.emplace_back(lowest);
        while (copies.size() < kMore)
            copies.emplace_back(::dup(accepted_.get()));
        auto child = Child::start({"/bin/sleep", "600"});
        ASSERT_TRUE(child);
        receiver_.emplace(std::move(*child));
    }
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit few = before;
    few.rlim_cur = static_cast<rlim_t>(lowest) + 4;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const int connections = sayGoodbye(*receiver_, {port()});
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(connections, kMore + 1);
}

TEST_F(Goodbye, IsNotSaidOnOtherPortsNorByAProcessThatHasEnded) {
    const auto other = static_cast<std::uint16_t>(port() == 65535 ? 1 : port() + 1);
    EXPECT_EQ(sayGoodbye(*receiver_, {other}), 0);
    EXPECT_TRUE(receiver_->end(std::chrono::steady_clock::now() + std::chrono::seconds(10)));
    EXPECT_EQ(sayGoodbye(*receiver_, {port()}), 0);
    EXPECT_EQ(read(sender_, 0), "<nothing>");
    const Fd late = newSender();
    EXPECT_EQ(::connect(late.get(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_), 0);
}

}  // namespace
}  // namespace ombrel
