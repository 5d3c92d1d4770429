// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// How a job says that it is ready.
#include "linux/common/readiness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "linux/common/fd.h"

namespace ombrel {
namespace {

class Readiness : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(::unsetenv("NOTIFY_SOCKET"), 0);
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
        reader_.reset(ends[0]);
        writer_.reset(ends[1]);
    }
    void TearDown() override { (void)::unsetenv("NOTIFY_SOCKET"); }

    static std::string drain(int fd) {
        std::array<char, 64> text{};
        const ssize_t got = ::read(fd, text.data(), text.size());
        return got < 0 ? "<nothing>" : std::string(text.data(), static_cast<std::size_t>(got));
    }

    Fd reader_;
    Fd writer_;
};

TEST_F(Readiness, IsALineBreakAndTheEndOfTheDescriptor) {
    EXPECT_EQ(reportReady(writer_.release()), 0);
    EXPECT_EQ(drain(reader_.get()), "\n");
    EXPECT_EQ(drain(reader_.get()), "");
}

TEST_F(Readiness, GoesToTheManagersSocketAndLeavesTheDescriptorAlone) {
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "@ombrel-readiness-" + std::to_string(::getpid());
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    address.sun_path[0] = '\0';  // an abstract one, which "@" stands for
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
    ASSERT_EQ(::setenv("NOTIFY_SOCKET", name.c_str(), 1), 0);
    EXPECT_EQ(reportReady(writer_.get()), 0);
    EXPECT_EQ(drain(socket.get()), "READY=1");
    EXPECT_EQ(drain(reader_.get()), "<nothing>");
    EXPECT_EQ(std::getenv("NOTIFY_SOCKET"), nullptr);
    EXPECT_EQ(::fcntl(writer_.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(Readiness, IsToldToNobodyWhereNobodyAsks) {
    EXPECT_EQ(reportReady(-1), 0);
}

TEST_F(Readiness, FailsWhereNobodyListens) {
    ASSERT_EQ(::setenv("NOTIFY_SOCKET", "@ombrel-nobody-there", 1), 0);
    errno = 0;
    EXPECT_EQ(reportReady(-1), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    const int closed = writer_.get();
    writer_.reset();
    ASSERT_EQ(::unsetenv("NOTIFY_SOCKET"), 0);
    EXPECT_EQ(reportReady(closed), -1);
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace ombrel
